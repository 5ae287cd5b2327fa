#include "SFTPAccount.h"

#include "AccountLog.h"
#include "kelCloud/Config.h"

namespace Orv::CLI {

namespace Config = Kel::Cloud::Config;

SFTPAccount::SFTPAccount(const QString& name, CommandType mode, QObject* parent)
    : BaseAccount(name, mode, parent), m_userOption({QStringLiteral("u"), QStringLiteral("user")},
                                                    QStringLiteral("User"), QStringLiteral("user")),
      m_passwordOption(QStringLiteral("password"), QStringLiteral("Password"),
                       QStringLiteral("password")),
      m_privateKeyOption({QStringLiteral("k"), QStringLiteral("private-key")},
                         QStringLiteral("Private key"), QStringLiteral("privateKey")),
      m_containerPathOption({QStringLiteral("c"), QStringLiteral("container-path")},
                            QStringLiteral("Server container path"),
                            QStringLiteral("containerPath")),
      m_portOption(QStringLiteral("port"), QStringLiteral("Server port. Default: 22"),
                   QStringLiteral("ServerPort")),
      m_keepAliveOption(QStringLiteral("keep-alive"), QStringLiteral("Keep alive. Default: ON"),
                        QStringLiteral("KeepAlive")),
      m_useProxyOption(QStringLiteral("use-proxy"), QStringLiteral("Use proxy. Default: ON"),
                       QStringLiteral("UseProxy"))
{
    addOption(m_userOption, true);
    addOption(m_passwordOption);
    addOption(m_privateKeyOption);
    addOption(m_containerPathOption, true);
    addOption(m_portOption, true);
    addOption(m_keepAliveOption, true);
    addOption(m_useProxyOption, true);
    addOption(m_endpointOption, true);
    addOption(m_prefixOption, true);
}

int SFTPAccount::checkOptions()
{
    if (checkIncompatibleParams(m_passwordOption, m_privateKeyOption))
        return Continue;
    qCInfo(lcAccount) << "Parameter conflict:" << m_passwordOption.names()
                      << m_privateKeyOption.names();
    return Usage;
}

int SFTPAccount::initParams()
{
    if (!readOption(m_userOption, Config::User, true) ||
        !readOption(m_containerPathOption, Config::Container, true))
        return Error;
    if (isAdd() && !checkMandatoryParams(m_passwordOption, m_privateKeyOption))
        return Error;
    // One way of logging in replaces the other.
    if (m_parser.isSet(m_passwordOption)) {
        m_config.remove(QLatin1String(Config::PrivateKey));
        readOption(m_passwordOption, Config::Password, false);
    } else if (m_parser.isSet(m_privateKeyOption)) {
        m_config.remove(QLatin1String(Config::Password));
        if (!readKeyFile(m_privateKeyOption, Config::PrivateKey, false))
            return Error;
    }
    readOption(m_portOption, Config::Port, false);
    if (!m_config.contains(QLatin1String(Config::Port)))
        m_config.insert(QLatin1String(Config::Port), QStringLiteral("22"));
    if (!readSwitch(m_keepAliveOption, Config::KeepAlive, true) ||
        !readSwitch(m_useProxyOption, Config::UseProxy, true))
        return Error;
    readOption(m_endpointOption, Config::Endpoint, false);
    m_container = m_config.value(QLatin1String(Config::Container)).toString();
    m_listContainers = true;
    return Continue;
}

} // namespace Orv::CLI
