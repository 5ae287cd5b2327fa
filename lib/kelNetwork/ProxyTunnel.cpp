#include "kelNetwork/ProxyTunnel.h"

#include "kelNetwork/CurlHandle.h"
#include "kelNetwork/Endpoint.h"

#include <curl/curl.h>
#include <fcntl.h>
#include <unistd.h>

namespace Kel::Network {

int ProxyTunnel::open(const QString& host, int port, const ProxySettings& proxy, int timeoutMs,
                      QString* error)
{
    if (!proxy.enabled()) {
        *error = QStringLiteral("no proxy is configured");
        return -1;
    }
    const CurlHandle handle;
    if (!handle) {
        *error = QStringLiteral("the HTTP library could not be initialised");
        return -1;
    }
    CURL* curl = handle.get();
    Endpoint target;
    target.host = host;
    target.port = port;
    // The HTTP library opens the way (CONNECT or the SOCKS exchange) and stops
    // there; the scheme of the address only names a protocol it knows.
    const QByteArray url = QStringLiteral("http://%1/").arg(target.authority(port)).toUtf8();
    char detail[CURL_ERROR_SIZE] = {};
    curl_easy_setopt(curl, CURLOPT_URL, url.constData());
    curl_easy_setopt(curl, CURLOPT_CONNECT_ONLY, 1L);
    curl_easy_setopt(curl, CURLOPT_HTTPPROXYTUNNEL, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, static_cast<long>(timeoutMs));
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    proxy.applyTo(curl);
    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        *error = CurlHandle::errorText(result, detail);
        return -1;
    }
    curl_socket_t socket = CURL_SOCKET_BAD;
    if (curl_easy_getinfo(curl, CURLINFO_ACTIVESOCKET, &socket) != CURLE_OK ||
        socket == CURL_SOCKET_BAD) {
        *error = QStringLiteral("the proxy connection was lost");
        return -1;
    }
    // The library closes its own descriptor with the handle; the connection
    // lives on in the duplicate.
    const int duplicate = ::fcntl(socket, F_DUPFD_CLOEXEC, 0);
    if (duplicate < 0)
        *error = QStringLiteral("cannot keep the proxy connection");
    return duplicate;
}

} // namespace Kel::Network
