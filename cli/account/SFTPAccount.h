#pragma once

#include "BaseAccount.h"

namespace Orv::CLI {

// A folder on an SSH server reached over SFTP ("sftp"), logged in with a
// password or a private key.
class SFTPAccount : public BaseAccount
{
    Q_OBJECT
public:
    SFTPAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int checkOptions() override;
    int initParams() override;

private:
    QCommandLineOption m_userOption;
    QCommandLineOption m_passwordOption;
    QCommandLineOption m_privateKeyOption;
    QCommandLineOption m_containerPathOption;
    QCommandLineOption m_portOption;
    QCommandLineOption m_keepAliveOption;
    QCommandLineOption m_useProxyOption;
};

} // namespace Orv::CLI
