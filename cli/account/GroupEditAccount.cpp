#include "GroupEditAccount.h"

namespace Orv::CLI {

EditAccountGroup::EditAccountGroup(bool allAccountTypes, QObject* parent)
    : CommandGroupBase(QStringLiteral("edit"), QStringLiteral("edit storage account"), parent)
{
    accountCreateGroup(CommandType::Edit, allAccountTypes);
}

} // namespace Orv::CLI
