#include "ProxySetting.h"

#include "Console.h"
#include "orvCommon/ProxyRecord.h"

namespace Orv::CLI {

namespace {

constexpr int kMaxPort = 65535;

} // namespace

ProxySetting::ProxySetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("proxy"), QStringLiteral("Proxy settings"), type, parent),
      m_addressOption(QStringLiteral("address"), QStringLiteral("Proxy address"),
                      QStringLiteral("proxyAddress")),
      m_passwordOption(QStringLiteral("password"), QStringLiteral("Proxy password"),
                       QStringLiteral("proxyPassword")),
      m_portOption(QStringLiteral("port"), QStringLiteral("Proxy port"),
                   QStringLiteral("proxyPort")),
      m_userOption(QStringLiteral("user"), QStringLiteral("Proxy user"),
                   QStringLiteral("proxyUser")),
      m_useProxyOption(QStringLiteral("use-proxy"),
                       QStringLiteral("Use proxy. Possible values: true/false"),
                       QStringLiteral("proxyType")),
      m_authenticationOption(QStringLiteral("authentication"), QStringLiteral("Use authentication"),
                             QStringLiteral("useAuthentication"))
{
    registerOption(m_addressOption);
    registerOption(m_passwordOption, false);
    registerOption(m_portOption);
    registerOption(m_userOption);
    registerOption(m_useProxyOption);
    registerOption(m_authenticationOption);
}

int ProxySetting::process(const QStringList& args)
{
    return run(args);
}

bool ProxySetting::readOptions()
{
    return setSwitchModeOption(m_useProxyOption, m_useProxy, false) &&
           setSwitchModeOption(m_authenticationOption, m_authentication, false) &&
           setOptionalOption(m_addressOption, m_address) &&
           setOptionalOption(m_passwordOption, m_password) &&
           setOptionalOption(m_portOption, m_port) && setOptionalOption(m_userOption, m_user);
}

bool ProxySetting::getOption()
{
    const Common::ProxyRecord record = Common::proxySettings();
    print(tr("Proxy settings:\n"));
    print(tr("State               : ") + stateName(record.enabled()) + QStringLiteral("\n"));
    print(tr("Address             : ") + record.address + QStringLiteral("\n"));
    print(tr("Port                : ") +
          (record.port > 0 ? QString::number(record.port) : QString()) + QStringLiteral("\n"));
    print(tr("Use authentication  : ") + stateName(record.useAuth) + QStringLiteral("\n"));
    print(tr("User                : ") + record.user + QStringLiteral("\n"));
    if (record.password.isEmpty())
        print(tr("Password            : "));
    else
        print(tr("Password            : ******\n"));
    return true;
}

bool ProxySetting::setOption()
{
    Common::ProxyRecord record = Common::proxySettings();
    if (!m_useProxy.toBool()) {
        record.type = Common::ProxyRecord::Type::None;
        return outputResult(Common::setProxySettings(record));
    }
    if (!record.enabled())
        record.type = Common::ProxyRecord::Type::Http;
    if (given(m_addressOption))
        record.address = m_address.toString();
    if (given(m_portOption)) {
        bool ok = false;
        const int port = m_port.toString().toInt(&ok);
        if (!ok) {
            print(tr("Wrong port specified.\n"));
            return false;
        }
        if (port < 0 || port > kMaxPort) {
            print(tr("Port must be in range [0 -65535].\n"));
            return false;
        }
        record.port = port;
    }
    if (given(m_authenticationOption))
        record.useAuth = m_authentication.toBool();
    if (given(m_userOption))
        record.user = m_user.toString();
    if (record.useAuth && record.user.isEmpty()) {
        print(tr("User name must be specified.\n"));
        return false;
    }
    const QString password = m_password.toString();
    if (!password.isEmpty() && !record.setPlainPassword(password))
        return outputResult(false);
    return outputResult(Common::setProxySettings(record));
}

} // namespace Orv::CLI
