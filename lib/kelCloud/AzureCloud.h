#pragma once

#include <QList>
#include <QString>

namespace Kel::Cloud {

// The clouds an Azure storage account can live in, by the names account
// configurations carry under Config::AzureType and the command line's
// "--type" takes. Each public and national cloud has its own blob service
// domain, under which an account is "ACCOUNT.blob.<domain>"; "Custom" takes
// the address of the blob service from Config::Endpoint instead (a local
// emulator, an on-premises installation, a private endpoint).
struct AzureCloud
{
    QString name;
    // "blob.core.windows.net"; empty for the custom type.
    QString blobDomain;

    bool needsEndpoint() const { return blobDomain.isEmpty(); }

    // Every cloud, the default first.
    static const QList<AzureCloud>& all();
    // The names, in the order of all().
    static QStringList names();
    // Exact, case-sensitive match; null when there is none.
    static const AzureCloud* find(const QString& name);
    static const AzureCloud& defaultCloud() { return all().first(); }
};

} // namespace Kel::Cloud
