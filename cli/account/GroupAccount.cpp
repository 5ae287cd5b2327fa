#include "GroupAccount.h"

#include "CommandAccountList.h"
#include "CommandDeleteAccount.h"
#include "CommandInfoAccount.h"
#include "CommandSyncAccount.h"
#include "GroupAddAccount.h"
#include "GroupEditAccount.h"

namespace Orv::CLI {

AccountGroup::AccountGroup(bool allAccountTypes, QObject* parent)
    : CommandGroupBase(QStringLiteral("account"), QStringLiteral("account commands"), parent)
{
    addSubItem(QSharedPointer<CommandDeleteAccount>::create());
    addSubItem(QSharedPointer<CommandSyncAccount>::create());
    addSubItem(QSharedPointer<CommandAccountList>::create());
    addSubItem(QSharedPointer<CommandInfoAccount>::create());
    addSubItem(QSharedPointer<AddAccountGroup>::create(allAccountTypes));
    addSubItem(QSharedPointer<EditAccountGroup>::create(allAccountTypes));
}

} // namespace Orv::CLI
