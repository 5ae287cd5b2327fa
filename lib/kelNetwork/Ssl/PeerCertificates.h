#pragma once

#include "kelNetwork/ProxySettings.h"

#include <QByteArray>
#include <QString>

namespace Kel::Network::Ssl {

// Connects to the endpoint ("host", "host:port" or a URL; port 443 when none
// is given) over TLS without verifying anything, and returns the certificate
// chain the server presented, as PEM text, the server's own first. Empty, with
// the reason in error, when no handshake took place.
QByteArray fetchPeerCertificates(const QString& endpoint, QString* error = nullptr,
                                 const ProxySettings& proxy = {}, int timeoutMs = 15000);

} // namespace Kel::Network::Ssl
