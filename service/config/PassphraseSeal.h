#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QString>
#include <optional>

namespace Orv::Service {

// The secrets of an exported configuration, sealed under a key derived from
// the administrator's passphrase (scrypt, then AES-256-GCM), so that the file
// can travel to another machine whose own local key differs. Each secret is
// bound to the item and field it belongs to: a sealed value moved elsewhere
// in the file no longer opens.
class PassphraseSeal
{
public:
    // For a new file: fresh salt. Fails only on an empty passphrase.
    static std::optional<PassphraseSeal> create(const QString& passphrase, QString* error);
    // For a file's "protection" object: fails when the passphrase is not the
    // one the file was written with, or the object is not one this reads.
    static std::optional<PassphraseSeal> open(const QJsonObject& protection,
                                              const QString& passphrase, QString* error);

    // What open() needs: the derivation's parameters, its salt and a check value.
    QJsonObject protection() const;

    QString seal(const QString& plain, const QString& context) const;
    std::optional<QString> unseal(const QString& sealed, const QString& context) const;
    static bool isSealed(const QString& text);

private:
    PassphraseSeal(const QByteArray& key, const QByteArray& salt, quint64 n, quint32 r, quint32 p);

    QByteArray m_key;
    QByteArray m_salt;
    quint64 m_n;
    quint32 m_r;
    quint32 m_p;
};

} // namespace Orv::Service
