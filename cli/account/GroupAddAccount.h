#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

// "account add": one command per account type the variant offers.
class AddAccountGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit AddAccountGroup(bool allAccountTypes, QObject* parent = nullptr);
};

} // namespace Orv::CLI
