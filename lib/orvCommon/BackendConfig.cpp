#include "orvCommon/BackendConfig.h"

#include "kelCloud/Config.h"
#include "kelCloud/Types.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/ProxyRecord.h"

namespace Orv::Common {

namespace Config = Kel::Cloud::Config;

namespace {

QString typeName(ProxyRecord::Type type)
{
    switch (type) {
    case ProxyRecord::Type::Http:
        return QStringLiteral("Http");
    case ProxyRecord::Type::Socks5:
        return QStringLiteral("Socks5");
    case ProxyRecord::Type::None:
        break;
    }
    return QStringLiteral("None");
}

void addProxy(QVariantMap* config)
{
    const ProxyRecord record = proxySettings();
    if (!record.enabled())
        return;
    config->insert(QLatin1String(Config::ProxyType), typeName(record.type));
    config->insert(QLatin1String(Config::ProxyHost), record.address);
    config->insert(QLatin1String(Config::ProxyPort), QString::number(record.port));
    if (!record.useAuth)
        return;
    config->insert(QLatin1String(Config::ProxyUser), record.user);
    config->insert(QLatin1String(Config::ProxyPassword),
                   record.plainPassword().value_or(QString()));
}

} // namespace

QVariantMap BackendConfig::prepare(QVariantMap config)
{
    const bool sftp = config.value(QLatin1String(Config::Type)).toString() ==
                      Kel::Cloud::typeName(Kel::Cloud::Type::Sftp);
    if (!sftp) {
        addProxy(&config);
        return config;
    }
    config.insert(QLatin1String(Config::KnownHostsFile),
                  Orv::Defines::AppPath::to().knownHostsFile());
    if (config.value(QLatin1String(Config::UseProxy)).toString() != QLatin1String("false"))
        addProxy(&config);
    return config;
}

} // namespace Orv::Common
