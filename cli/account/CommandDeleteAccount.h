#pragma once

#include "CommandAccountBase.h"

namespace Orv::CLI {

// "account delete": removes an account from the client. The backup data in
// its storage is left alone.
class CommandDeleteAccount : public CommandAccountBase
{
    Q_OBJECT
public:
    explicit CommandDeleteAccount(QObject* parent = nullptr);

protected:
    void start() override;
};

} // namespace Orv::CLI
