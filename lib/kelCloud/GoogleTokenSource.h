#pragma once

#include "kelCloud/GoogleAuth.h"
#include "kelCloud/HttpTransport.h"

#include <QDateTime>
#include <QJsonObject>

namespace Kel::Cloud {

// Access tokens of Google's OAuth 2.0 token endpoint for a service account
// (a signed JWT exchanged for a token) or an installed application (a
// refresh token, obtained first from a one-time authorisation code when the
// configuration has no refresh token yet). A token is kept until a minute
// before it expires, or until the storage service refuses it.
class GoogleTokenSource
{
public:
    static constexpr const char* DefaultTokenUrl = "https://oauth2.googleapis.com/token";
    static constexpr const char* Scope = "https://www.googleapis.com/auth/devstorage.read_write";

    struct Settings
    {
        GoogleAuth::Type type = GoogleAuth::ServiceAcc;
        QByteArray tokenUrl = DefaultTokenUrl;
        // Service accounts.
        QByteArray privateKeyPem;
        QString serviceEmail;
        // Installed applications.
        QString clientId;
        QString clientSecret;
        QString redirectUri;
        QString authCode;
        QString refreshToken;

        Kel::Network::ProxySettings proxy;
        int retryAttempts = 0;
        int retryInterval = 0; // milliseconds
    };

    explicit GoogleTokenSource(const Settings& settings);

    Status token(QByteArray* accessToken);
    // Forgets the token, so that the next call asks for another.
    void invalidate() { m_token.clear(); }
    // The refresh token in use; it differs from the configuration's when it
    // was obtained here from the authorisation code.
    QString refreshToken() const { return m_settings.refreshToken; }

private:
    Status requestToken(const QList<QPair<QString, QString>>& form);
    QList<QPair<QString, QString>> grant(Status* status) const;

    Settings m_settings;
    HttpTransport m_transport;
    QByteArray m_token;
    QDateTime m_expires;
};

} // namespace Kel::Cloud
