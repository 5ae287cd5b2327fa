#pragma once

#include "BaseAccount.h"

#include <QMap>

namespace Orv::CLI {

// Google Cloud Storage ("googlestorage"): a bucket reached with HMAC keys,
// a service account's key, or an installed application's authorisation.
class GoogleAccount : public BaseAccount
{
    Q_OBJECT
public:
    enum AuthType
    {
        AccessKey = 0,
        ServiceAcc = 1,
        InstallApp = 2
    };

    static const QMap<QString, AuthType>& AuthTypeValue();
    static const QMap<AuthType, QString>& AuthTypeName();

    GoogleAccount(const QString& name, CommandType mode, QObject* parent = nullptr);

protected:
    int initParams() override;

private:
    int readCredentials(AuthType type);

    QCommandLineOption m_authTypeOption;
    QCommandLineOption m_accessKeyOption;
    QCommandLineOption m_secretKeyOption;
    QCommandLineOption m_projectIdOption;
    QCommandLineOption m_privateKeyOption;
    QCommandLineOption m_serviceEmailOption;
    QCommandLineOption m_authCodeOption;
    QCommandLineOption m_refreshTokenOption;
    QCommandLineOption m_bucketOption;
};

} // namespace Orv::CLI
