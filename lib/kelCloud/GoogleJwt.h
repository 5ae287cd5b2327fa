#pragma once

#include <QByteArray>
#include <QString>

namespace Kel::Cloud {

// The signed assertion with which a Google service account asks for an
// access token: a JSON Web Token (header, claims, signature, each base64url
// without padding) signed with RS256 (RSASSA-PKCS1-v1_5 over SHA-256) by the
// account's private key. The signature is OpenSSL's; only the token's
// assembly is written here.
class GoogleJwt
{
public:
    struct Claims
    {
        QString issuer;      // the service account's e-mail
        QString scope;       // space-separated
        QString audience;    // the token endpoint
        qint64 issuedAt = 0; // seconds since the epoch
        qint64 lifetime = 3600;
    };

    // Empty, with the reason in error, when the key is not an RSA private
    // key in PEM form.
    static QByteArray assertion(const Claims& claims, const QByteArray& privateKeyPem,
                                QString* error);
    static QByteArray base64Url(const QByteArray& data);
    // The RS256 signature of the text; empty on failure.
    static QByteArray signRs256(const QByteArray& text, const QByteArray& privateKeyPem,
                                QString* error);
};

} // namespace Kel::Cloud
