#include "GoogleAccount.h"

#include "Console.h"
#include "kelCloud/Config.h"

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;

const QMap<QString, GoogleAccount::AuthType>& GoogleAccount::AuthTypeValue()
{
    static const QMap<QString, AuthType> values{{QStringLiteral("AccessKey"), AccessKey},
                                                {QStringLiteral("ServiceAcc"), ServiceAcc},
                                                {QStringLiteral("InstallApp"), InstallApp}};
    return values;
}

const QMap<GoogleAccount::AuthType, QString>& GoogleAccount::AuthTypeName()
{
    static const QMap<AuthType, QString> names = [] {
        QMap<AuthType, QString> byValue;
        for (auto it = AuthTypeValue().cbegin(); it != AuthTypeValue().cend(); ++it)
            byValue.insert(it.value(), it.key());
        return byValue;
    }();
    return names;
}

GoogleAccount::GoogleAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent),
      m_authTypeOption({QStringLiteral("t"), QStringLiteral("auth-type")},
                       QStringLiteral("Auth type"), QStringLiteral("authType")),
      m_accessKeyOption({QStringLiteral("a"), QStringLiteral("access-key")},
                        QStringLiteral("Access key"), QStringLiteral("accessKey")),
      m_secretKeyOption({QStringLiteral("s"), QStringLiteral("secret-key")},
                        QStringLiteral("Secret key"), QStringLiteral("secretKey")),
      m_projectIdOption(QStringLiteral("project-id"), QStringLiteral("Project id"),
                        QStringLiteral("projectId")),
      m_privateKeyOption({QStringLiteral("k"), QStringLiteral("private-key")},
                         QStringLiteral("Private key"), QStringLiteral("privateKey")),
      m_serviceEmailOption({QStringLiteral("e"), QStringLiteral("service-email")},
                           QStringLiteral("Service email"), QStringLiteral("serviceEmail")),
      m_authCodeOption({QStringLiteral("c"), QStringLiteral("auth-code")},
                       QStringLiteral("Auth code"), QStringLiteral("Auth Code")),
      m_refreshTokenOption(QStringLiteral("refresh-token"), QStringLiteral("Refresh token"),
                           QStringLiteral("refreshToken")),
      m_bucketOption({QStringLiteral("b"), QStringLiteral("bucket")}, QStringLiteral("Bucket name"),
                     QStringLiteral("bucketName"))
{
    addOption(m_authTypeOption, true);
    addOption(m_accessKeyOption);
    addOption(m_secretKeyOption);
    addOption(m_projectIdOption, true);
    // A path to the key file, not the key.
    addOption(m_privateKeyOption, true);
    addOption(m_serviceEmailOption, true);
    // Authorisation codes and tokens open the account: never in the log.
    addOption(m_authCodeOption);
    addOption(m_refreshTokenOption);
    addOption(m_bucketOption, true);
    addOption(m_prefixOption, true);
    addOption(m_sslOption, true);
}

int GoogleAccount::initParams()
{
    AuthType type = AccessKey;
    const QString typeKey = QLatin1String(Config::AuthType);
    if (m_parser.isSet(m_authTypeOption)) {
        const QString given = m_parser.value(m_authTypeOption).trimmed();
        if (!AuthTypeValue().contains(given)) {
            print(QStringLiteral("Unknown auth type: ") + given + QStringLiteral("\n"));
            return Usage;
        }
        type = AuthTypeValue().value(given);
    } else if (!isAdd()) {
        type = AuthTypeValue().value(m_config.value(typeKey).toString(), AccessKey);
    }
    m_config.insert(typeKey, AuthTypeName().value(type));

    if (!readOption(m_bucketOption, Config::Container, true))
        return Error;
    const int credentials = readCredentials(type);
    if (credentials != Continue)
        return credentials;
    readOption(m_serviceEmailOption, Config::ServiceEmail, false);
    readOption(m_refreshTokenOption, Config::RefreshToken, false);
    m_container = m_config.value(QLatin1String(Config::Container)).toString();
    m_listContainers = true;
    return readSwitch(m_sslOption, Config::UseSsl, false) ? Continue : Error;
}

int GoogleAccount::readCredentials(AuthType type)
{
    switch (type) {
    case ServiceAcc:
        return readOption(m_projectIdOption, Config::ProjectId, true) &&
                       readKeyFile(m_privateKeyOption, Config::PrivateKey, true)
                   ? Continue
                   : Error;
    case InstallApp:
        return readOption(m_projectIdOption, Config::ProjectId, true) &&
                       readOption(m_authCodeOption, Config::AuthCode, true)
                   ? Continue
                   : Error;
    case AccessKey:
        break;
    }
    return readOption(m_accessKeyOption, Config::AccessKey, true) &&
                   readOption(m_secretKeyOption, Config::SecretKey, true)
               ? Continue
               : Error;
}

} // namespace Orv::CLI
