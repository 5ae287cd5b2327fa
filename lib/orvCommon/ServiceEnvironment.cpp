#include "orvCommon/ServiceEnvironment.h"

#include "orvCommon/AppPath.h"

#include <QDir>
#include <QFileInfo>
#include <QNetworkProxy>
#include <QSettings>

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
    const QString path = Orv::Defines::AppPath::to().proxyFile();
    if (!QFileInfo::exists(path))
        return;
    const QSettings record(path, QSettings::IniFormat);
    const QString type = record.value(QStringLiteral("Proxy/type")).toString().toLower();
    const QString host = record.value(QStringLiteral("Proxy/host")).toString();
    const int port = record.value(QStringLiteral("Proxy/port")).toInt();
    if (host.isEmpty() || port <= 0 || port > 65535)
        return;
    if (type == QLatin1String("http") || type == QLatin1String("socks5")) {
        QNetworkProxy proxy(type == QLatin1String("http") ? QNetworkProxy::HttpProxy
                                                          : QNetworkProxy::Socks5Proxy,
                            host, static_cast<quint16>(port),
                            record.value(QStringLiteral("Proxy/user")).toString());
        QNetworkProxy::setApplicationProxy(proxy);
    }
}

} // namespace Orv::Service
