#pragma once

#include "kelCloud/Status.h"
#include "kelNetwork/CurlHandle.h"
#include "kelNetwork/ProxySettings.h"

#include <QByteArray>
#include <QList>
#include <QMap>
#include <functional>

class QIODevice;

namespace Kel::Cloud {

// One kept-alive connection to a storage service through the HTTP library.
// It sends a request exactly as the service's client built and signed it,
// trusts what the network library trusts, goes through the account's proxy,
// and words a transfer that failed below HTTP as a Status. Which HTTP answers
// are failures, and how their bodies read, is the service client's business;
// the repeat loop with its back-off is shared here.
class HttpTransport
{
public:
    struct Request
    {
        QByteArray method = "GET";
        QByteArray url;
        // Whole lines, "Name: value".
        QList<QByteArray> headers;
        // Sent with PUT and POST.
        QByteArray body;
        // A successful (2xx) answer's body goes here instead of Response::body.
        QIODevice* sink = nullptr;
        // Applied to the handle after the common options: what a service needs
        // besides, such as a signature the HTTP library computes.
        std::function<void(CURL*)> prepare;
    };

    struct Response
    {
        int status = 0;
        QByteArray body;
        // Names in lower case; the last of repeated headers.
        QMap<QByteArray, QByteArray> headers;
    };

    enum class Outcome
    {
        // The request is over: an answer that needs no repeat, or a failure
        // that a repeat would not mend.
        Done,
        // Worth sending again after a wait.
        Retry,
        Failed,
    };

    explicit HttpTransport(const Kel::Network::ProxySettings& proxy = {}) : m_proxy(proxy) {}

    // Done when any HTTP answer arrived (whatever its status); otherwise
    // status says why, and Retry means the connection broke before anything
    // was delivered to the sink.
    Outcome perform(const Request& request, Response* response, Status* status);

    // Answers that ask for the same request again later: 429, 500, 502, 503, 504.
    static bool isRetriedStatus(int status);
    // The wait before repeat number attempt (from 0): the server's
    // Retry-After in seconds when it gave one, else the interval doubled for
    // each earlier repeat; never more than five minutes.
    static int waitBefore(int attempt, const Response& response, int intervalMs);

    // Runs attempt until it says Done or Failed, or Retry has been said
    // retryAttempts times, waiting as waitBefore says in between. Returns the
    // last attempt's status.
    using Attempt = std::function<Outcome(Response* response, Status* status)>;
    static Status repeat(int retryAttempts, int intervalMs, Response* response,
                         const Attempt& attempt);

private:
    Status transportFailure(int code, const QString& detail, const QByteArray& url) const;

    Kel::Network::ProxySettings m_proxy;
    Kel::Network::CurlHandle m_curl;
};

} // namespace Kel::Cloud
