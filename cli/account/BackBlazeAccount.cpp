#include "BackBlazeAccount.h"

#include "kelCloud/Config.h"

#include <QJsonObject>

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;

BackBlazeAccount::BackBlazeAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent),
      m_keyIdOption({QStringLiteral("k"), QStringLiteral("key-id")}, QStringLiteral("Key ID"),
                    QStringLiteral("keyId")),
      m_applicationKeyOption({QStringLiteral("a"), QStringLiteral("application-key")},
                             QStringLiteral("Application key"), QStringLiteral("applicationKey")),
      m_bucketOption({QStringLiteral("b"), QStringLiteral("bucket")},
                     QStringLiteral("Bucket name or id"), QStringLiteral("bucketName"))
{
    addOption(m_keyIdOption);
    addOption(m_applicationKeyOption);
    addOption(m_bucketOption, true);
    addOption(m_prefixOption, true);
}

int BackBlazeAccount::initParams()
{
    if (!readOption(m_applicationKeyOption, Config::ApplicationKey, true) ||
        !readOption(m_keyIdOption, Config::KeyId, true) ||
        !readOption(m_bucketOption, Config::Container, true))
        return Error;
    m_container = m_config.value(QLatin1String(Config::Container)).toString();
    m_listContainers = true;
    return Continue;
}

bool BackBlazeAccount::checkContainer()
{
    for (const QJsonValue& value : qAsConst(m_containers)) {
        const QJsonObject container = value.toObject();
        if (container.value(QStringLiteral("Name")).toString() == m_container ||
            container.value(QStringLiteral("Id")).toString() == m_container)
            return true;
    }
    return BaseAccount::checkContainer();
}

} // namespace Orv::CLI
