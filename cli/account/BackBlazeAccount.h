#pragma once

#include "BaseAccount.h"

namespace Orv::CLI {

// Backblaze B2 ("backblaze"): an application key and a bucket named by its
// name or its id.
class BackBlazeAccount : public BaseAccount
{
    Q_OBJECT
public:
    BackBlazeAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;
    bool checkContainer() override;

private:
    QCommandLineOption m_keyIdOption;
    QCommandLineOption m_applicationKeyOption;
    QCommandLineOption m_bucketOption;
};

} // namespace Orv::CLI
