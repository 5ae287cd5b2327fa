#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>

namespace Orv::Service {

// The server certificates the administrator chose to trust: one PEM file in
// the instance's config folder, rewritten whole and atomically on every
// change. Only certificates are kept; text around them is dropped.
class TrustedStore
{
public:
    explicit TrustedStore(const QString& path) : m_path(path) {}

    QString path() const { return m_path; }
    // Each certificate as its own PEM text, in file order.
    QStringList certificates() const;
    // The whole store as PEM text.
    QByteArray pem() const;

    // Each returns an empty string on success, otherwise the reason; *changed
    // tells whether the file was rewritten.
    // Adds the certificates of pem that the store does not hold yet.
    QString append(const QByteArray& pem, bool* changed);
    // Replaces the whole store; an empty text empties it.
    QString write(const QByteArray& pem, bool* changed);
    // Removes the certificates of pem from the store.
    QString remove(const QByteArray& pem, bool* changed);

private:
    QString save(const QStringList& certificates, bool* changed);

    QString m_path;
};

} // namespace Orv::Service
