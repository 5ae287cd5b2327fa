#include "kelCloud/HttpTransport.h"

#include "kelNetwork/Endpoint.h"
#include "kelNetwork/Ssl/CurlTls.h"
#include "kelNetwork/Ssl/PeerCertificates.h"

#include <QIODevice>
#include <QThread>
#include <QUrl>
#include <curl/curl.h>

namespace Kel::Cloud {

namespace {

constexpr long ConnectTimeoutMs = 15000;
// A transfer that moves nothing for this long has failed.
constexpr long StallSeconds = 60;
constexpr int MaxWaitMs = 5 * 60 * 1000;
// Bodies kept in memory: listings, error documents, API answers.
constexpr qsizetype MaxMemoryBody = 64 * 1024 * 1024;

struct Transfer
{
    CURL* curl = nullptr;
    HttpTransport::Response* response = nullptr;
    QIODevice* sink = nullptr;
    bool toSink = false;
    bool decided = false;
    bool delivered = false;
};

size_t receiveBody(char* data, size_t size, size_t count, void* context)
{
    auto* transfer = static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    if (!transfer->decided) {
        long status = 0;
        curl_easy_getinfo(transfer->curl, CURLINFO_RESPONSE_CODE, &status);
        transfer->toSink = transfer->sink && status >= 200 && status < 300;
        transfer->decided = true;
    }
    if (transfer->toSink) {
        transfer->delivered = true;
        return transfer->sink->write(data, static_cast<qint64>(bytes)) == static_cast<qint64>(bytes)
                   ? bytes
                   : 0;
    }
    QByteArray& body = transfer->response->body;
    if (body.size() + static_cast<qsizetype>(bytes) > MaxMemoryBody)
        return 0;
    body.append(data, static_cast<int>(bytes));
    return bytes;
}

size_t receiveHeader(char* data, size_t size, size_t count, void* context)
{
    auto* transfer = static_cast<Transfer*>(context);
    const size_t bytes = size * count;
    const QByteArray line = QByteArray(data, static_cast<int>(bytes)).trimmed();
    // A new status line (after "100 Continue" or a redirect) starts afresh.
    if (line.startsWith("HTTP/")) {
        transfer->response->headers.clear();
        return bytes;
    }
    const int colon = line.indexOf(':');
    if (colon > 0)
        transfer->response->headers.insert(line.left(colon).trimmed().toLower(),
                                           line.mid(colon + 1).trimmed());
    return bytes;
}

struct HeaderList
{
    curl_slist* list = nullptr;
    ~HeaderList() { curl_slist_free_all(list); }
    void append(const QByteArray& line) { list = curl_slist_append(list, line.constData()); }
};

void setMethod(CURL* curl, const HttpTransport::Request& request)
{
    if (request.method == "HEAD") {
        curl_easy_setopt(curl, CURLOPT_NOBODY, 1L);
    } else if (request.method == "PUT" || request.method == "POST") {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.constData());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDS, request.body.constData());
        curl_easy_setopt(curl, CURLOPT_POSTFIELDSIZE_LARGE,
                         static_cast<curl_off_t>(request.body.size()));
    } else if (request.method != "GET") {
        curl_easy_setopt(curl, CURLOPT_CUSTOMREQUEST, request.method.constData());
    }
}

} // namespace

HttpTransport::Outcome HttpTransport::perform(const Request& request, Response* response,
                                              Status* status)
{
    *response = {};
    CURL* curl = m_curl.get();
    if (!curl) {
        *status = Status::failure(Operation::Error::Unknown,
                                  QStringLiteral("the HTTP library could not be initialised"));
        return Outcome::Failed;
    }
    // Forgets the last request's options; the open connection stays.
    curl_easy_reset(curl);
    HeaderList headers;
    for (const QByteArray& header : request.headers)
        headers.append(header);
    Transfer transfer;
    transfer.curl = curl;
    transfer.response = response;
    transfer.sink = request.sink;
    char detail[CURL_ERROR_SIZE] = {};

    curl_easy_setopt(curl, CURLOPT_URL, request.url.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, ConnectTimeoutMs);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, StallSeconds);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    // A round trip to ask whether the body may come buys nothing here.
    curl_easy_setopt(curl, CURLOPT_EXPECT_100_TIMEOUT_MS, 0L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &receiveBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &receiveHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    m_proxy.applyTo(curl);
    Kel::Network::Ssl::CurlTls::apply(curl);
    setMethod(curl, request);
    if (request.prepare)
        request.prepare(curl);

    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        *status = transportFailure(result, Kel::Network::CurlHandle::errorText(result, detail),
                                   request.url);
        const bool transient =
            result == CURLE_GOT_NOTHING || result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR;
        return transient && !transfer.delivered ? Outcome::Retry : Outcome::Failed;
    }
    long code = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
    response->status = static_cast<int>(code);
    *status = Status::success();
    return Outcome::Done;
}

bool HttpTransport::isRetriedStatus(int status)
{
    return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

int HttpTransport::waitBefore(int attempt, const Response& response, int intervalMs)
{
    bool seconds = false;
    const int retryAfter = response.headers.value("retry-after").toInt(&seconds);
    if (seconds && retryAfter >= 0)
        return qMin(retryAfter * 1000, MaxWaitMs);
    const qint64 wait = static_cast<qint64>(intervalMs) << qMin(attempt, 16);
    return static_cast<int>(qMin<qint64>(wait, MaxWaitMs));
}

Status HttpTransport::repeat(int retryAttempts, int intervalMs, Response* response,
                             const Attempt& attempt)
{
    for (int done = 0;; ++done) {
        Status status;
        const Outcome outcome = attempt(response, &status);
        if (outcome != Outcome::Retry || done >= retryAttempts)
            return status;
        QThread::msleep(static_cast<unsigned long>(waitBefore(done, *response, intervalMs)));
    }
}

Status HttpTransport::transportFailure(int code, const QString& detail, const QByteArray& url) const
{
    const QUrl address(QString::fromUtf8(url));
    Kel::Network::Endpoint peer;
    peer.host = address.host();
    peer.port = address.port(0);
    const QString where = peer.port > 0 ? peer.authority(0) : peer.urlHost();
    switch (code) {
    case CURLE_PEER_FAILED_VERIFICATION:
#if LIBCURL_VERSION_NUM >= 0x073200
    case CURLE_SSL_ISSUER_ERROR:
#endif
    {
        Status status = Status::failure(
            Operation::Error::UntrustedCertificate,
            QStringLiteral("the certificate of %1 is not trusted: %2").arg(where, detail));
        QString error;
        status.peerCertificates =
            Kel::Network::Ssl::fetchPeerCertificates(peer.authority(443), &error, m_proxy);
        if (status.peerCertificates.isEmpty())
            status.message +=
                QStringLiteral(" (its certificates could not be fetched: %1)").arg(error);
        return status;
    }
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
    case CURLE_COULDNT_CONNECT:
    case CURLE_OPERATION_TIMEDOUT:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_GOT_NOTHING:
    case CURLE_SEND_ERROR:
    case CURLE_RECV_ERROR:
        return Status::failure(Operation::Error::Unreachable,
                               QStringLiteral("cannot reach %1: %2").arg(where, detail));
    default:
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("request to %1 failed: %2").arg(where, detail));
    }
}

} // namespace Kel::Cloud
