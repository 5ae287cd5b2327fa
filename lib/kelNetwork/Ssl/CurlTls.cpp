#include "kelNetwork/Ssl/CurlTls.h"

#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"

#include <QFile>
#include <curl/curl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509_vfy.h>

namespace Kel::Network::Ssl {

namespace {

CURLcode addTrusted(CURL*, void* context, void*)
{
    X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(context));
    if (!store)
        return CURLE_OK;
    const QString file = GlobalConfig::instance()->trustedCertificatesPath();
    if (!file.isEmpty() && QFile::exists(file))
        X509_STORE_load_locations(store, QFile::encodeName(file).constData(), nullptr);
    SslCertificateCache::instance()->addTo(store);
    // The user trusts the very certificate they were shown, usually the
    // server's own, not a root above it: a chain that reaches any trusted
    // certificate is enough.
    X509_STORE_set_flags(store, X509_V_FLAG_PARTIAL_CHAIN);
    ERR_clear_error();
    return CURLE_OK;
}

} // namespace

void CurlTls::apply(CURL* curl)
{
    const GlobalConfig* config = GlobalConfig::instance();
    if (config->ignoreSslErrors()) {
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
        return;
    }
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 2L);
    const QString caInfo = config->caInfoPath();
    if (!caInfo.isEmpty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, QFile::encodeName(caInfo).constData());
#if LIBCURL_VERSION_NUM >= 0x075700
    // A cached store would outlive changes of the trusted certificates.
    curl_easy_setopt(curl, CURLOPT_CA_CACHE_TIMEOUT, 0L);
#endif
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_FUNCTION, &addTrusted);
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_DATA, nullptr);
}

} // namespace Kel::Network::Ssl
