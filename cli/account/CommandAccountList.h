#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// "account list": one line per account, its name, type and ID.
class CommandAccountList : public CommandBase
{
    Q_OBJECT
public:
    explicit CommandAccountList(QObject* parent = nullptr);

    int process(const QStringList& words) override;

private slots:
    void onGetAccountListResult();
};

} // namespace Orv::CLI
