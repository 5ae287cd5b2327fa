#include "orvCommon/NetworkSettings.h"

#include "kelNetwork/GlobalConfig.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/SettingsKeys.h"

namespace Orv::Common {

namespace {

int positiveValue(const char* key)
{
    const DefaultSettings::Property* property =
        DefaultSettings::instance()->items().value(QLatin1String(key));
    bool ok = false;
    const int value = property->value().toInt(&ok);
    return ok && value > 0 ? value : property->defaultValue().toInt();
}

} // namespace

void applyNetworkSettings()
{
    Kel::Network::GlobalConfig* config = Kel::Network::GlobalConfig::instance();
    config->setIgnoreSslErrors(DefaultSettings::instance()->getIgnoreSSL() ==
                               QLatin1String("true"));
    config->setConnectionRetryAttempts(positiveValue(SettingsKeys::ConnectionRetryAttempts));
    config->setConnectionRetryInterval(positiveValue(SettingsKeys::ConnectionRetryInterval));
}

} // namespace Orv::Common
