#include "AzureBlobAccount.h"

#include "Console.h"
#include "kelCloud/AzureCloud.h"
#include "kelCloud/Config.h"

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;

AzureBlobAccount::AzureBlobAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent),
      m_accountNameOption({QStringLiteral("a"), QStringLiteral("account-name")},
                          QStringLiteral("Account name"), QStringLiteral("accountName")),
      m_sharedKeyOption({QStringLiteral("s"), QStringLiteral("shared-key")},
                        QStringLiteral("Shared key"), QStringLiteral("sharedKey")),
      m_containerNameOption({QStringLiteral("c"), QStringLiteral("container-name")},
                            QStringLiteral("Container Name"), QStringLiteral("containerName")),
      m_typeOption({QStringLiteral("t"), QStringLiteral("type")}, QStringLiteral("Type"),
                   QStringLiteral("Type"))
{
    addOption(m_accountNameOption, true);
    addOption(m_sharedKeyOption);
    addOption(m_containerNameOption, true);
    addOption(m_typeOption, true);
    addOption(m_endpointOption, true);
    addOption(m_prefixOption, true);
    addOption(m_sslOption, true);
}

int AzureBlobAccount::initParams()
{
    const QString typeKey = QLatin1String(Config::AzureType);
    if (m_parser.isSet(m_typeOption)) {
        const QString given = m_parser.value(m_typeOption).trimmed();
        // The cloud library's table of clouds decides, and which need an
        // endpoint.
        if (!Kel::Cloud::AzureCloud::find(given)) {
            print(QStringLiteral("Unknown azure type.\n"));
            return Usage;
        }
        m_config.insert(typeKey, given);
    } else if (isAdd() || !m_config.contains(typeKey)) {
        m_config.insert(typeKey, Kel::Cloud::AzureCloud::defaultCloud().name);
    }
    if (!readOption(m_accountNameOption, Config::AccountName, true) ||
        !readOption(m_sharedKeyOption, Config::SharedKey, true) ||
        !readOption(m_containerNameOption, Config::Container, true))
        return Error;
    const Kel::Cloud::AzureCloud* cloud =
        Kel::Cloud::AzureCloud::find(m_config.value(typeKey).toString());
    const bool needsEndpoint = cloud && cloud->needsEndpoint();
    if (!readOption(m_endpointOption, Config::Endpoint,
                    needsEndpoint && !m_config.contains(QLatin1String(Config::Endpoint))))
        return Error;
    m_container = m_config.value(QLatin1String(Config::Container)).toString();
    m_listContainers = true;
    return readSwitch(m_sslOption, Config::UseSsl, false) ? Continue : Error;
}

} // namespace Orv::CLI
