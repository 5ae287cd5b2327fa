#pragma once

#include "CommandAccountBase.h"

namespace Orv::CLI {

// "account info": the details of one account.
class CommandInfoAccount : public CommandAccountBase
{
    Q_OBJECT
public:
    explicit CommandInfoAccount(QObject* parent = nullptr);

protected:
    void start() override;

private slots:
    void onInfoAccountResult();
};

} // namespace Orv::CLI
