#pragma once

#include "BaseAccount.h"

#include <QSet>

namespace Orv::CLI {

// Azure Blob storage ("azure"): a storage account, its shared key and a
// container, in one of Azure's clouds or at an endpoint of one's own.
class AzureBlobAccount : public BaseAccount
{
    Q_OBJECT
public:
    // The clouds the type option names; "Custom" takes the endpoint option.
    static const QStringList& AzureTypes();
    static const QString CustomType;

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
