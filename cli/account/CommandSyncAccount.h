#pragma once

#include "CommandAccountBase.h"

namespace Orv::CLI {

// "account sync": asks the service to synchronise an account with its
// storage (space used, backup prefixes present). The pass goes on in the
// service after the command ends.
class CommandSyncAccount : public CommandAccountBase
{
    Q_OBJECT
public:
    explicit CommandSyncAccount(QObject* parent = nullptr);

protected:
    void start() override;
};

} // namespace Orv::CLI
