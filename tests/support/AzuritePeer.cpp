#include "support/AzuritePeer.h"

#include "kelCloud/AzureBlobClient.h"
#include "kelCloud/Config.h"

namespace OrvTest {

namespace Config = Kel::Cloud::Config;

AzuritePeer::AzuritePeer(const QStringList& containers) : m_containers(containers) {}

bool AzuritePeer::start(QString* error)
{
    static const QRegularExpression listening(QStringLiteral("listens on http://[^:\\s]+:(\\d+)"));
    // The emulator cannot pick its own port: another process may take the one
    // chosen here first, so a few are tried.
    bool listens = false;
    for (int attempt = 0; attempt < 3 && !listens; ++attempt) {
        const QStringList arguments{QStringLiteral("--blobHost"),
                                    QStringLiteral("127.0.0.1"),
                                    QStringLiteral("--blobPort"),
                                    QString::number(PeerProcess::freePort()),
                                    QStringLiteral("-l"),
                                    m_dir.filePath(QStringLiteral("data")),
                                    QStringLiteral("--skipApiVersionCheck"),
                                    QStringLiteral("--disableTelemetry")};
        listens = m_process.start(QStringLiteral("azurite-blob"), arguments, listening, 30000,
                                  &m_port, error);
    }
    if (!listens)
        return false;
    for (const QString& container : qAsConst(m_containers))
        if (!makeContainer(container, error))
            return false;
    return true;
}

bool AzuritePeer::makeContainer(const QString& name, QString* error) const
{
    Kel::Cloud::AzureBlobClient::Settings settings;
    settings.account = QLatin1String(Account);
    settings.key = Key;
    settings.serviceUrl = endpoint().toUtf8() + '/' + Account;
    settings.container = name;
    Kel::Cloud::AzureBlobClient client(settings);
    Kel::Cloud::AzureBlobClient::Request request;
    request.method = "PUT";
    request.query = {{QStringLiteral("restype"), QStringLiteral("container")}};
    Kel::Cloud::AzureBlobClient::Response response;
    const Kel::Cloud::Status status = client.send(request, &response);
    if (!status.ok())
        *error = QStringLiteral("cannot make the container %1: %2").arg(name, status.message);
    return status.ok();
}

QVariantMap AzuritePeer::config(const QString& container) const
{
    return {
        {QLatin1String(Config::Type), QStringLiteral("AzureBlob")},
        {QLatin1String(Config::AzureType), QStringLiteral("Custom")},
        {QLatin1String(Config::Endpoint), endpoint()},
        {QLatin1String(Config::UseSsl), QStringLiteral("false")},
        {QLatin1String(Config::AccountName), QLatin1String(Account)},
        {QLatin1String(Config::SharedKey), QLatin1String(Key)},
        {QLatin1String(Config::Container), container},
        {QLatin1String(Config::RetryAttempts), QStringLiteral("2")},
        {QLatin1String(Config::RetryInterval), QStringLiteral("10")},
    };
}

} // namespace OrvTest
