#include "kelNetwork/Ssl/PeerCertificates.h"

#include "kelNetwork/CurlHandle.h"
#include "kelNetwork/Endpoint.h"
#include "kelNetwork/Ssl/Certificate.h"

#include <curl/curl.h>

namespace Kel::Network::Ssl {

namespace {

void setError(QString* error, const QString& text)
{
    if (error)
        *error = text;
}

QByteArray chainOf(CURL* curl)
{
    curl_certinfo* info = nullptr;
    if (curl_easy_getinfo(curl, CURLINFO_CERTINFO, &info) != CURLE_OK || !info)
        return {};
    QByteArray chain;
    for (int i = 0; i < info->num_of_certs; ++i) {
        for (curl_slist* field = info->certinfo[i]; field; field = field->next) {
            const QByteArray text(field->data);
            if (!text.startsWith("Cert:"))
                continue;
            // Written again so that every block ends the same way.
            chain += Certificate(text.mid(5), Certificate::Pem).to(Certificate::Pem);
        }
    }
    return chain;
}

} // namespace

QByteArray fetchPeerCertificates(const QString& endpoint, QString* error,
                                 const ProxySettings& proxy, int timeoutMs)
{
    const Endpoint parsed = Endpoint::parse(endpoint);
    if (!parsed.isValid()) {
        setError(error, QStringLiteral("not an endpoint: \"%1\"").arg(endpoint));
        return {};
    }
    const CurlHandle handle;
    if (!handle) {
        setError(error, QStringLiteral("the HTTP library could not be initialised"));
        return {};
    }
    CURL* curl = handle.get();
    const QByteArray url = QStringLiteral("https://%1/").arg(parsed.authority(443)).toUtf8();
    char detail[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(curl, CURLOPT_CERTINFO, 1L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
    curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    // Nothing is verified, so no trust anchors need reading.
    curl_easy_setopt(curl, CURLOPT_CAINFO, nullptr);
    curl_easy_setopt(curl, CURLOPT_CAPATH, nullptr);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeoutMs));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(timeoutMs));
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    proxy.applyTo(curl);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        setError(error, CurlHandle::errorText(result, detail));
        return {};
    }
    const QByteArray chain = chainOf(curl);
    if (chain.isEmpty())
        setError(error, QStringLiteral("the server presented no certificate"));
    return chain;
}

} // namespace Kel::Network::Ssl
