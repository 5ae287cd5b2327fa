#include "ApplicationTarn.h"

#include "Console.h"
#include "GroupTarn.h"

namespace Orv::CLI {

ApplicationTarn::ApplicationTarn(const QStringList& arguments, QObject* parent)
    : Application(arguments, parent)
{
    setRootGroup(QSharedPointer<TarnCommandGroup>::create());
}

void ApplicationTarn::onStarted()
{
    print(welcomeString());
    print(QStringLiteral("\n"));
    checkAndProcess();
}

} // namespace Orv::CLI
