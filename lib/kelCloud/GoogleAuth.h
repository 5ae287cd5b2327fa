#pragma once

#include <QMap>
#include <QString>

namespace Kel::Cloud {

// How a Google Storage account authenticates. Configurations carry the name
// under Config::AuthType (the command line writes names); the values are
// accepted as well.
class GoogleAuth
{
public:
    enum Type
    {
        // HMAC access keys, through the S3-compatible XML API.
        AccessKey = 0,
        // A service account's private key, exchanged for access tokens.
        ServiceAcc = 1,
        // An installed application's authorisation code, or the refresh
        // token it was exchanged for.
        InstallApp = 2,
    };

    static const QMap<QString, Type>& TypeValue();
    static const QMap<Type, QString>& TypeName();
    // A name (exact) or a value; AccessKey for empty text; false for other text.
    static bool parse(const QString& text, Type* type);
};

} // namespace Kel::Cloud
