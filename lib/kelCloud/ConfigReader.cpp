#include "kelCloud/ConfigReader.h"

#include "kelCloud/Config.h"
#include "kelNetwork/GlobalConfig.h"

namespace Kel::Cloud {

bool ConfigReader::has(const char* key) const
{
    return !raw(key).isEmpty();
}

QString ConfigReader::raw(const char* key) const
{
    return m_config.value(QLatin1String(key)).toString();
}

bool ConfigReader::flag(const char* key, bool fallback, bool* ok) const
{
    if (ok)
        *ok = true;
    const QString value = text(key).toLower();
    if (value.isEmpty())
        return fallback;
    for (const char* yes : {"true", "1", "yes", "on"})
        if (value == QLatin1String(yes))
            return true;
    for (const char* no : {"false", "0", "no", "off"})
        if (value == QLatin1String(no))
            return false;
    if (ok)
        *ok = false;
    return fallback;
}

qint64 ConfigReader::number(const char* key, qint64 fallback, bool* ok) const
{
    if (ok)
        *ok = true;
    const QString value = text(key);
    if (value.isEmpty())
        return fallback;
    bool parsed = false;
    const qint64 result = value.toLongLong(&parsed);
    if (ok)
        *ok = parsed;
    return parsed ? result : fallback;
}

Kel::Network::ProxySettings ConfigReader::proxy() const
{
    Kel::Network::ProxySettings proxy;
    proxy.type = Kel::Network::ProxySettings::typeFromName(text(Config::ProxyType));
    proxy.host = text(Config::ProxyHost);
    proxy.port = static_cast<int>(number(Config::ProxyPort, 0));
    proxy.user = raw(Config::ProxyUser);
    proxy.password = raw(Config::ProxyPassword);
    return proxy;
}

int ConfigReader::retryAttempts() const
{
    const qint64 fallback = Kel::Network::GlobalConfig::instance()->connectionRetryAttempts();
    return static_cast<int>(qBound<qint64>(0, number(Config::RetryAttempts, fallback), 100));
}

int ConfigReader::retryInterval() const
{
    const qint64 fallback = Kel::Network::GlobalConfig::instance()->connectionRetryInterval();
    return static_cast<int>(qBound<qint64>(0, number(Config::RetryInterval, fallback), 3600000));
}

bool ConfigReader::partSize(qint64 fallback, qint64 minimum, qint64 maximum, qint64* size,
                            QString* error) const
{
    bool ok = true;
    *size = number(Config::PartSize, fallback, &ok);
    if (ok && *size >= minimum && *size <= maximum)
        return true;
    *error =
        QStringLiteral("the part size must be between %1 and %2 bytes").arg(minimum).arg(maximum);
    return false;
}

} // namespace Kel::Cloud
