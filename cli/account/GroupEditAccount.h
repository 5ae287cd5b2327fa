#pragma once

#include "CommandGroupBase.h"

namespace Orv::CLI {

// "account edit": one command per account type the variant offers. The
// application puts the type of the account named on the command line in
// front of the options, so administrators need not type it.
class EditAccountGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    explicit EditAccountGroup(bool allAccountTypes, QObject* parent = nullptr);
};

} // namespace Orv::CLI
