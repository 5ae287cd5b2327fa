#include "kelNetwork/Endpoint.h"

#include <QUrl>

namespace Kel::Network {

QString Endpoint::urlHost() const
{
    return host.contains(QLatin1Char(':')) ? QLatin1Char('[') + host + QLatin1Char(']') : host;
}

QString Endpoint::authority(int defaultPort) const
{
    return QStringLiteral("%1:%2").arg(urlHost()).arg(port > 0 ? port : defaultPort);
}

Endpoint Endpoint::parse(const QString& text)
{
    const QString trimmed = text.trimmed();
    if (trimmed.isEmpty() || trimmed.contains(QLatin1Char(' ')))
        return {};
    const bool hasScheme = trimmed.contains(QLatin1String("://"));
    const QUrl url(hasScheme ? trimmed : QStringLiteral("none://") + trimmed, QUrl::StrictMode);
    if (!url.isValid() || url.host().isEmpty() || !url.userInfo().isEmpty() || url.hasQuery() ||
        url.hasFragment())
        return {};
    Endpoint endpoint;
    endpoint.scheme = hasScheme ? url.scheme().toLower() : QString();
    endpoint.host = url.host();
    endpoint.port = url.port(0);
    endpoint.path = url.path() == QLatin1String("/") ? QString() : url.path();
    return endpoint;
}

} // namespace Kel::Network
