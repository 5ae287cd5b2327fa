#include "service/trust/TrustedStore.h"

#include "kelCore/AtomicFile.h"
#include "kelNetwork/Ssl/Certificate.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace Orv::Service {

using Kel::Network::Ssl::Certificate;

namespace {

// Far above any store an administrator builds by hand.
constexpr qint64 kMaxFileSize = 4 * 1024 * 1024;

QStringList pemsOf(const QByteArray& text)
{
    QStringList pems;
    const QList<Certificate> certificates = Certificate::readAll(text);
    for (const Certificate& certificate : certificates)
        pems.append(QString::fromLatin1(certificate.to(Certificate::Pem)));
    return pems;
}

QString noCertificate()
{
    return QStringLiteral("The text holds no certificate");
}

} // namespace

QStringList TrustedStore::certificates() const
{
    QFile file(m_path);
    if (file.size() > kMaxFileSize || !file.open(QIODevice::ReadOnly))
        return {};
    return pemsOf(file.readAll());
}

QByteArray TrustedStore::pem() const
{
    return certificates().join(QString()).toLatin1();
}

QString TrustedStore::save(const QStringList& certificates, bool* changed)
{
    *changed = false;
    if (certificates == this->certificates())
        return {};
    if (!QDir().mkpath(QFileInfo(m_path).absolutePath()))
        return QStringLiteral("Cannot create the folder of %1").arg(m_path);
    const QString error =
        Kel::Core::AtomicFile::write(m_path, certificates.join(QString()).toLatin1(), 0644);
    *changed = error.isEmpty();
    return error;
}

QString TrustedStore::append(const QByteArray& pem, bool* changed)
{
    *changed = false;
    const QStringList added = pemsOf(pem);
    if (added.isEmpty())
        return noCertificate();
    QStringList all = certificates();
    for (const QString& certificate : added)
        if (!all.contains(certificate))
            all.append(certificate);
    return save(all, changed);
}

QString TrustedStore::write(const QByteArray& pem, bool* changed)
{
    *changed = false;
    const QStringList all = pemsOf(pem);
    if (all.isEmpty() && !pem.trimmed().isEmpty())
        return noCertificate();
    return save(all, changed);
}

QString TrustedStore::remove(const QByteArray& pem, bool* changed)
{
    *changed = false;
    const QStringList removed = pemsOf(pem);
    if (removed.isEmpty())
        return noCertificate();
    QStringList all = certificates();
    for (const QString& certificate : removed)
        all.removeAll(certificate);
    return save(all, changed);
}

} // namespace Orv::Service
