#pragma once

#include "kelNetwork/Ssl/Certificate.h"

#include <QByteArray>
#include <QList>
#include <QMutex>
#include <QSet>

typedef struct x509_store_st X509_STORE;

namespace Kel::Network::Ssl {

// The server certificates the user chose to trust, held in memory for every
// TLS connection of the process. The programs fill it from the service's
// trusted store; connections read it when they start. Safe from any thread.
class SslCertificateCache
{
public:
    static SslCertificateCache* instance();

    // Replaces the whole set. Each entry is PEM text holding one or more
    // certificates; entries that hold none are left out.
    void update(const QSet<QByteArray>& pems);
    QSet<QByteArray> pems() const;
    QList<Certificate> certificates() const;
    bool isEmpty() const;
    // Changes with every update, so that users can tell a stale copy.
    quint64 generation() const;

    // Adds every cached certificate to the store as a trust anchor; returns
    // how many were added.
    int addTo(X509_STORE* store) const;

private:
    SslCertificateCache() = default;

    mutable QMutex m_mutex;
    QSet<QByteArray> m_pems;
    QList<Certificate> m_certificates;
    quint64 m_generation = 0;
};

} // namespace Kel::Network::Ssl
