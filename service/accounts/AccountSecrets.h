#pragma once

#include <QJsonObject>
#include <QString>

namespace Orv::Service {

// The secrets of an account configuration (the keys the cloud library names
// in Kel::Cloud::Config::SecretKeys): sealed with the installation's local
// key before a record is written, opened only for the owner's requests that
// must use them, and masked everywhere else.
class AccountSecrets
{
public:
    static constexpr char Mask[] = "****";

    static bool isSecret(const QString& key);

    // Encrypts every secret of params. A secret given as the mask keeps the
    // sealed value previous holds, so that an edit made from a masked record
    // never destroys the stored secret. False, with the reason, when the
    // local key cannot be used.
    static bool seal(QJsonObject* params, const QJsonObject& previous, QString* error);
    // Decrypts every sealed secret of params.
    static bool open(QJsonObject* params, QString* error);
    // Replaces every non-empty secret with the mask.
    static QJsonObject masked(const QJsonObject& params);
};

} // namespace Orv::Service
