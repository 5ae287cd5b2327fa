#pragma once

#include "BaseAccount.h"

namespace Orv::CLI {

// A local or mounted folder ("filesystem"). The account's data goes to a
// folder of its own below the one given, created when the account is added.
class FileSystemAccount : public BaseAccount
{
    Q_OBJECT
public:
    FileSystemAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;

protected slots:
    void onErrorAddAccountResult(const QString& message) override;
};

} // namespace Orv::CLI
