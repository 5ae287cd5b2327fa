#include "ApplicationStandalone.h"

#include "Console.h"
#include "GroupStandalone.h"

namespace Orv::CLI {

ApplicationStandalone::ApplicationStandalone(const QStringList& arguments, QObject* parent)
    : Application(arguments, parent)
{
    setRootGroup(QSharedPointer<StandaloneCommandGroup>::create());
}

void ApplicationStandalone::onStarted()
{
    print(welcomeString());
    print(QStringLiteral("\n"));
    checkAndProcess();
}

} // namespace Orv::CLI
