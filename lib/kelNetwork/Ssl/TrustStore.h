#pragma once

typedef struct x509_store_st X509_STORE;

namespace Kel::Network::Ssl {

// The certificates a verifying TLS connection trusts, as one OpenSSL store
// shared by every connection of the process: the system's anchors (or the
// bundle GlobalConfig::caInfoPath names), the certificates of
// GlobalConfig::trustedCertificatesPath and those of SslCertificateCache. A
// chain that reaches any of them is accepted.
//
// Reading the system's bundle costs tens of milliseconds, which each new
// connection would otherwise pay; the store is read once and read again only
// when one of its sources has changed.
class TrustStore
{
public:
    // With a reference of the caller's own, to release with X509_STORE_free;
    // null when no store could be made.
    static X509_STORE* acquire();
};

} // namespace Kel::Network::Ssl
