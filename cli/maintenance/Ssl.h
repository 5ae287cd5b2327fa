#pragma once

#include "kelNetwork/Ssl/Certificate.h"

#include <QList>
#include <QString>

// The server certificates the administrator trusts. The service keeps the
// store; this process reads it into the network library's cache at start-up,
// fetches an endpoint's certificate when a storage cannot be checked because
// its certificate is not trusted, shows it, and adds it on request.
namespace Orv::CLI::Ssl {

// Fills the network library's global configuration: the installation's
// trusted-certificate file, and the settings store's TLS and retry choices.
void init();
// Replaces the certificate cache with the service's store. A failure is
// logged and leaves the cache as it was.
void updateSslCertificateCache();
// The chain the endpoint presents, fetched by the service; empty (with the
// reason printed) on failure.
QList<Kel::Network::Ssl::Certificate> loadSslCertificate(const QString& endpoint);
// The certificate as the administrator reads it before trusting it.
QString showSslCertificate(const Kel::Network::Ssl::Certificate& certificate);
// Adds the certificate to the service's store; false (with the reason
// printed) on failure. The caller refreshes the cache afterwards.
bool addSslCertificateToStorage(const Kel::Network::Ssl::Certificate& certificate);
// The certificates of the service's store; throws the reason as a QString.
QList<Kel::Network::Ssl::Certificate> listSslCertificates();

} // namespace Orv::CLI::Ssl
