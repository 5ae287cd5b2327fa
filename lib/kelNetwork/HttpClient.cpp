#include "kelNetwork/HttpClient.h"

#include "kelNetwork/CurlHandle.h"
#include "kelNetwork/Ssl/CurlTls.h"

#include <curl/curl.h>
#include <memory>

namespace Kel::Network {

namespace {

struct ListDeleter
{
    void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

size_t collectBody(char* data, size_t size, size_t count, void* target)
{
    auto* body = static_cast<QByteArray*>(target);
    const size_t bytes = size * count;
    if (body->size() + static_cast<qsizetype>(bytes) > HttpClient::maxBodySize)
        return 0; // makes curl fail the transfer with a write error
    body->append(data, static_cast<int>(bytes));
    return bytes;
}

} // namespace

HttpClient::Response HttpClient::send(const Request& request)
{
    Response response;
    const CurlHandle handle;
    if (!handle) {
        response.error = QStringLiteral("the HTTP library could not be initialised");
        return response;
    }
    CURL* curl = handle.get();

    const QByteArray url = request.url.toUtf8();
    const QByteArray caFile = request.caFile.toLocal8Bit();
    const QByteArray proxyUrl = request.proxyUrl.toUtf8();
    const QByteArray proxyUser = request.proxyUser.toUtf8();
    const QByteArray proxyPassword = request.proxyPassword.toUtf8();
    std::unique_ptr<curl_slist, ListDeleter> headers;
    for (const auto& header : request.headers) {
        const QByteArray line = header.first + ": " + header.second;
        curl_slist* grown = curl_slist_append(headers.get(), line.constData());
        if (!grown) {
            response.error = QStringLiteral("out of memory");
            return response;
        }
        // Appending returns the head of the list, which is new only at first.
        if (!headers)
            headers.reset(grown);
    }

    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_FOLLOWLOCATION, 0L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(request.connectTimeoutMs));
    curl_easy_setopt(curl, CURLOPT_TIMEOUT_MS, static_cast<long>(request.timeoutMs));
    Ssl::CurlTls::apply(curl);
    if (!request.verifyPeer) {
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYPEER, 0L);
        curl_easy_setopt(curl, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (!caFile.isEmpty())
        curl_easy_setopt(curl, CURLOPT_CAINFO, caFile.constData());
    // The client's own proxy record decides; an empty string also turns off the
    // environment's proxy variables.
    curl_easy_setopt(curl, CURLOPT_PROXY, proxyUrl.constData());
    if (!proxyUrl.isEmpty() && !proxyUser.isEmpty()) {
        curl_easy_setopt(curl, CURLOPT_PROXYUSERNAME, proxyUser.constData());
        curl_easy_setopt(curl, CURLOPT_PROXYPASSWORD, proxyPassword.constData());
    }
    curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.constData());
    if (request.method != "GET" && request.method != "HEAD") {
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.constData());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    }
    if (request.method == "HEAD")
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    if (headers)
        curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.get());
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &collectBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &response.body);

    char errorBuffer[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, errorBuffer);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        response.error = CurlHandle::errorText(result, errorBuffer);
        response.body.clear();
        return response;
    }
    long status = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
    response.status = static_cast<int>(status);
    return response;
}

} // namespace Kel::Network
