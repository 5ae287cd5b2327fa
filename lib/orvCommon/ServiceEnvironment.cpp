#include "orvCommon/ServiceEnvironment.h"

#include "orvCommon/AppPath.h"
#include "orvCommon/ProxyRecord.h"

#include <QDebug>
#include <QDir>
#include <QNetworkProxy>
#include <sys/stat.h>

namespace Orv::Service {

void init_environment()
{
    // Configuration holds secrets and the logs hold paths of user data.
    ::umask(0077);
    const auto& paths = Orv::Defines::AppPath::to();
    if (!paths.root().isEmpty())
        QDir().mkpath(paths.logs());
}

void init_proxy()
{
    const Orv::Common::ProxyRecord record = Orv::Common::proxySettings();
    if (!record.enabled() || record.address.isEmpty() || record.port <= 0)
        return;
    QNetworkProxy proxy(record.type == Orv::Common::ProxyRecord::Type::Socks5
                            ? QNetworkProxy::Socks5Proxy
                            : QNetworkProxy::HttpProxy,
                        record.address, static_cast<quint16>(record.port));
    if (record.useAuth) {
        proxy.setUser(record.user);
        QString reason;
        const std::optional<QString> password = record.plainPassword(&reason);
        if (password)
            proxy.setPassword(*password);
        else
            qWarning() << "The proxy password cannot be used:" << reason;
    }
    QNetworkProxy::setApplicationProxy(proxy);
}

} // namespace Orv::Service
