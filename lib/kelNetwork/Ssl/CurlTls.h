#pragma once

typedef void CURL;

namespace Kel::Network::Ssl {

// What every TLS connection of the client trusts: the system's anchors (or
// the bundle the global configuration names), the installation's trusted
// certificate file and the certificates of SslCertificateCache; or nothing
// at all when the administrator chose to ignore TLS errors.
class CurlTls
{
public:
    static void apply(CURL* curl);
};

} // namespace Kel::Network::Ssl
