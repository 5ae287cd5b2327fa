#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

// "account": the storage accounts. With allAccountTypes false (the managed
// variant) only file-system accounts can be added or edited.
class AccountGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit AccountGroup(bool allAccountTypes, QObject* parent = nullptr);
};

} // namespace Orv::CLI
