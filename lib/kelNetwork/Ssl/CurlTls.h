#pragma once

typedef void CURL;

namespace Kel::Network::Ssl {

// Makes a handle's TLS connections trust what TrustStore holds, or verify
// nothing at all when the administrator chose to ignore TLS errors.
class CurlTls
{
public:
    static void apply(CURL* curl);
};

} // namespace Kel::Network::Ssl
