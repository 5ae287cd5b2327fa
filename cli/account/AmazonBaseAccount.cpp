#include "AmazonBaseAccount.h"

#include "kelCloud/Config.h"

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;

AmazonBaseAccount::AmazonBaseAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent),
      m_accessKeyOption({QStringLiteral("a"), QStringLiteral("access-key")},
                        QStringLiteral("Access key"), QStringLiteral("accessKey")),
      m_secretKeyOption({QStringLiteral("s"), QStringLiteral("secret-key")},
                        QStringLiteral("Secret key"), QStringLiteral("secretKey")),
      m_bucketOption({QStringLiteral("b"), QStringLiteral("bucket")}, QStringLiteral("Bucket name"),
                     QStringLiteral("bucketName"))
{
    addOption(m_accessKeyOption);
    addOption(m_secretKeyOption);
    addOption(m_bucketOption, true);
    addOption(m_prefixOption, true);
    addOption(m_sslOption, true);
}

int AmazonBaseAccount::initParams()
{
    if (!readOption(m_accessKeyOption, Config::AccessKey, true) ||
        !readOption(m_secretKeyOption, Config::SecretKey, true) ||
        !readOption(m_bucketOption, Config::Container, true))
        return Error;
    m_container = m_config.value(QLatin1String(Config::Container)).toString();
    m_listContainers = true;
    return readSwitch(m_sslOption, Config::UseSsl, false) ? Continue : Error;
}

} // namespace Orv::CLI
