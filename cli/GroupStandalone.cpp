#include "GroupStandalone.h"

#include "RootItems.h"
#include "maintenance/CommandCheckUpdate.h"

namespace Orv::CLI {

StandaloneCommandGroup::StandaloneCommandGroup(QObject* parent)
    : CommandGroupBase(QString(), QString(), parent)
{
    addCommonRootItems(this, true);
    addSubItem(QSharedPointer<CommandCheckUpdate>::create());
}

} // namespace Orv::CLI
