#pragma once

#include "BaseAccount.h"

namespace Orv::CLI {

// Azure Blob storage ("azure"): a storage account, its shared key and a
// container, in one of Azure's clouds or at an endpoint of one's own.
class AzureBlobAccount : public BaseAccount
{
    Q_OBJECT
public:
    AzureBlobAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;

private:
    QCommandLineOption m_accountNameOption;
    QCommandLineOption m_sharedKeyOption;
    QCommandLineOption m_containerNameOption;
    QCommandLineOption m_typeOption;
};

} // namespace Orv::CLI
