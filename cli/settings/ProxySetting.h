#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "proxy": the proxy the client reaches the internet through. The record
// lives apart from the settings store; its password is kept encrypted and is
// never shown or logged.
class ProxySetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit ProxySetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    QCommandLineOption m_addressOption;
    QCommandLineOption m_passwordOption;
    QCommandLineOption m_portOption;
    QCommandLineOption m_userOption;
    QCommandLineOption m_useProxyOption;
    QCommandLineOption m_authenticationOption;
    QVariant m_address;
    QVariant m_password;
    QVariant m_port;
    QVariant m_user;
    QVariant m_useProxy;
    QVariant m_authentication;
};

} // namespace Orv::CLI
