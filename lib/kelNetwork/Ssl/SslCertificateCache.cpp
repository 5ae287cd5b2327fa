#include "kelNetwork/Ssl/SslCertificateCache.h"

#include <QDebug>
#include <QMutexLocker>
#include <openssl/err.h>
#include <openssl/x509.h>

namespace Kel::Network::Ssl {

SslCertificateCache* SslCertificateCache::instance()
{
    static SslCertificateCache cache;
    return &cache;
}

void SslCertificateCache::update(const QSet<QByteArray>& pems)
{
    QSet<QByteArray> kept;
    QList<Certificate> certificates;
    for (const QByteArray& pem : pems) {
        const QList<Certificate> read = Certificate::readAll(pem);
        if (read.isEmpty()) {
            qWarning() << "Trusted certificate entry holds no certificate; left out";
            continue;
        }
        kept.insert(pem);
        certificates.append(read);
    }
    QMutexLocker lock(&m_mutex);
    m_pems = kept;
    m_certificates = certificates;
    ++m_generation;
}

QSet<QByteArray> SslCertificateCache::pems() const
{
    QMutexLocker lock(&m_mutex);
    return m_pems;
}

QList<Certificate> SslCertificateCache::certificates() const
{
    QMutexLocker lock(&m_mutex);
    return m_certificates;
}

bool SslCertificateCache::isEmpty() const
{
    QMutexLocker lock(&m_mutex);
    return m_certificates.isEmpty();
}

quint64 SslCertificateCache::generation() const
{
    QMutexLocker lock(&m_mutex);
    return m_generation;
}

int SslCertificateCache::addTo(X509_STORE* store) const
{
    const QList<Certificate> certificates = this->certificates();
    int added = 0;
    for (const Certificate& certificate : certificates) {
        // A certificate already in the store (say, also a system anchor) is
        // refused as a duplicate; it is trusted all the same.
        if (X509_STORE_add_cert(store, certificate.handle()) == 1)
            ++added;
        ERR_clear_error();
    }
    return added;
}

} // namespace Kel::Network::Ssl
