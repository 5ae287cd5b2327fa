#include "GroupAddAccount.h"

namespace Orv::CLI {

AddAccountGroup::AddAccountGroup(bool allAccountTypes, QObject* parent)
    : CommandGroupBase(QStringLiteral("add"), QStringLiteral("add storage account"), parent)
{
    accountCreateGroup(CommandType::Add, allAccountTypes);
}

} // namespace Orv::CLI
