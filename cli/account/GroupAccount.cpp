#include "GroupAccount.h"

namespace Orv::CLI {

AccountGroup::AccountGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("account"), QStringLiteral("account commands"), parent)
{
}

} // namespace Orv::CLI
