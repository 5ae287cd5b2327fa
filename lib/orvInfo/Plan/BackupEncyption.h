#pragma once

#include "orvInfo/Plan/Secret.h"
#include "orvInfo/Plan/WordTable.h"

#include <QByteArray>
#include <QString>

namespace Orv::Info::Plan {

// The encryption of a backup plan's data (Backup::Encyption). Off by default,
// with AES-256 and no password.
//
// The password is sealed with the instance's local key whenever the plan is
// written for storage and masked whenever it is written for display (see
// Base::SecretForm).
class BackupEncyption
{
public:
    // The numbers are part of the stored and exchanged form. Undefined (6)
    // marks an algorithm this version does not offer; an edit switches such a
    // plan to AES-256.
    enum Type
    {
        AES128 = 0,
        AES192 = 1,
        AES256 = 2,
        Undefined = 6,
    };

    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled) { m_enabled = enabled; }
    Type encryptionType() const { return m_type; }
    void setEncryptionType(Type type) { m_type = type; }
    QString password() const { return m_password.text(); }
    void setPassword(const QString& password) { m_password = Secret(password); }
    // The password with its sealed state, for the XML form.
    const Secret& passwordSecret() const { return m_password; }
    void setPasswordSecret(const Secret& secret) { m_password = secret; }
    // The hint, as the bytes the command line gives (Base64 text of UTF-8).
    QByteArray hint() const { return m_hint; }
    void setHint(const QByteArray& hint) { m_hint = hint; }

    // "AES-128", "AES-192", "AES-256", or "Undefined".
    static QString encryprtionAlgorithmToString(Type type);
    // "aes-128", "aes-192", "aes-256".
    static const WordTable<Type>& words();

private:
    bool m_enabled = false;
    Type m_type = AES256;
    Secret m_password;
    QByteArray m_hint;
};

} // namespace Orv::Info::Plan
