#include "GroupTarn.h"

#include "RootItems.h"
#include "maintenance/SendUninstallNotification.h"

namespace Orv::CLI {

TarnCommandGroup::TarnCommandGroup(QObject* parent) : CommandGroupBase(QString(), QString(), parent)
{
    addCommonRootItems(this, false);
    addSubItem(QSharedPointer<SendUninstallNotification>::create());
}

} // namespace Orv::CLI
