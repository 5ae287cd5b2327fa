#include "kelNetwork/ProxySettings.h"

#include <curl/curl.h>

namespace Kel::Network {

ProxySettings::Type ProxySettings::typeFromName(const QString& name)
{
    const QString lower = name.trimmed().toLower();
    if (lower == QLatin1String("http"))
        return Type::Http;
    if (lower == QLatin1String("socks5"))
        return Type::Socks5;
    return Type::None;
}

void ProxySettings::applyTo(CURL* curl) const
{
    if (!enabled()) {
        curl_easy_setopt(curl, CURLOPT_PROXY, "");
        return;
    }
    // socks5h: the proxy resolves the server's name, as a browser's would.
    const QString scheme = type == Type::Http ? QStringLiteral("http") : QStringLiteral("socks5h");
    const QString bracketed =
        host.contains(QLatin1Char(':')) ? QLatin1Char('[') + host + QLatin1Char(']') : host;
    const QByteArray url = QStringLiteral("%1://%2:%3").arg(scheme, bracketed).arg(port).toUtf8();
    curl_easy_setopt(curl, CURLOPT_PROXY, url.constData());
    if (user.isEmpty())
        return;
    curl_easy_setopt(curl, CURLOPT_PROXYUSERNAME, user.toUtf8().constData());
    curl_easy_setopt(curl, CURLOPT_PROXYPASSWORD, password.toUtf8().constData());
}

} // namespace Kel::Network
