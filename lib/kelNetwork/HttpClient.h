#pragma once

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

namespace Kel::Network {

// A blocking HTTP(S) client for the few calls the client makes to its
// provider's web services. One request per call; safe to use from any thread.
class HttpClient
{
public:
    struct Request
    {
        QString url;
        QByteArray method = "GET";
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
        int connectTimeoutMs = 10000;
        int timeoutMs = 30000;
        // Certificates are checked as the installation's TLS rules say (its
        // trusted certificates, or none when errors are ignored globally);
        // false turns the check off for this request.
        bool verifyPeer = true;
        // A PEM bundle used instead of the configured trust anchors.
        QString caFile;
        // "http://host:port"; empty means a direct connection, whatever the
        // environment's proxy variables say.
        QString proxyUrl;
        QString proxyUser;
        QString proxyPassword;
    };

    struct Response
    {
        // The HTTP status; 0 when no answer arrived (name resolution, connection,
        // TLS or time-out failure).
        int status = 0;
        QByteArray body;
        // Why no answer arrived; empty otherwise.
        QString error;
    };

    // Bodies beyond this size are cut off and the call fails: the services
    // answer a few bytes, and a runaway peer must not exhaust memory.
    static constexpr qsizetype maxBodySize = 1024 * 1024;

    static Response send(const Request& request);
};

} // namespace Kel::Network
