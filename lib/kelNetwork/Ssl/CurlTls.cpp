#include "kelNetwork/Ssl/CurlTls.h"

#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/TrustStore.h"

#include <curl/curl.h>
#include <openssl/ssl.h>

namespace Kel::Network::Ssl {

namespace {

CURLcode useTrustStore(CURL*, void* context, void*)
{
    X509_STORE* store = TrustStore::acquire();
    if (!store)
        return CURLE_OUT_OF_MEMORY;
    // The context takes a reference of its own.
    SSL_CTX_set1_cert_store(static_cast<SSL_CTX*>(context), store);
    X509_STORE_free(store);
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
    // The library reads no anchors of its own: the shared store replaces its
    // empty one as each connection starts.
    curl_easy_setopt(curl, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_FUNCTION, &useTrustStore);
    curl_easy_setopt(curl, CURLOPT_SSL_CTX_DATA, nullptr);
}

} // namespace Kel::Network::Ssl
