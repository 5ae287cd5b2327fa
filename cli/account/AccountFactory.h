#pragma once

#include "BaseAccount.h"

#include <QSharedPointer>

namespace Orv::CLI {

// Builds the add or edit command of an account type.
class AccountFactory
{
public:
    static QSharedPointer<BaseAccount> create(const QString& name, Kel::Cloud::Type type,
                                              CommandType mode);
};

} // namespace Orv::CLI
