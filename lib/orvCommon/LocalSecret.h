#pragma once

#include <QByteArray>
#include <QString>
#include <optional>

namespace Orv::Common {

// Encryption of secrets kept in this installation's configuration files
// (proxy and account passwords, keys). The key is 32 random bytes in the
// instance's key file, made on first use, readable by its owner only; a secret
// encrypted here can be read back only by this installation.
//
// The text form is "v1:" and the base64 of nonce, ciphertext and tag
// (AES-256-GCM), so a value tampered with, or encrypted under another key, is
// refused rather than decrypted into garbage.
class LocalSecret
{
public:
    // With an empty path, the instance's key file (AppPath) at the time of use.
    explicit LocalSecret(const QString& keyFile = QString());

    // Empty on failure, with the reason in *error.
    QString encrypt(const QByteArray& plain, QString* error = nullptr) const;
    // No value on failure, with the reason in *error.
    std::optional<QByteArray> decrypt(const QString& text, QString* error = nullptr) const;
    // Whether the text has the form encrypt() produces.
    static bool isEncrypted(const QString& text);

private:
    QString keyPath() const;
    std::optional<QByteArray> readKey(QString* error) const;
    std::optional<QByteArray> readOrCreateKey(QString* error) const;

    QString m_keyFile;
};

} // namespace Orv::Common
