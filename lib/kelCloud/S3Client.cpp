#include "kelCloud/S3Client.h"

#include "kelCloud/Aws2Signer.h"
#include "kelCloud/S3Uri.h"
#include "kelCloud/S3Xml.h"
#include "kelNetwork/Endpoint.h"
#include "kelNetwork/Ssl/CurlTls.h"
#include "kelNetwork/Ssl/PeerCertificates.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QIODevice>
#include <QLocale>
#include <QSet>
#include <QThread>
#include <curl/curl.h>

namespace Kel::Cloud {

using Info::AmazonS3Like::Signature;

namespace {

constexpr long ConnectTimeoutMs = 15000;
// A transfer that moves nothing for this long has failed.
constexpr long StallSeconds = 60;
constexpr int MaxWaitMs = 5 * 60 * 1000;
// Bodies kept in memory: listings and error documents.
constexpr qsizetype MaxMemoryBody = 64 * 1024 * 1024;

struct Transfer
{
    CURL* curl = nullptr;
    S3Client::Response* response = nullptr;
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

bool isRetried(int status)
{
    return status == 429 || status == 500 || status == 502 || status == 503 || status == 504;
}

Operation::Error errorOfCode(const QString& code)
{
    static const QSet<QString> authorization{
        QStringLiteral("InvalidAccessKeyId"),
        QStringLiteral("SignatureDoesNotMatch"),
        QStringLiteral("AccessDenied"),
        QStringLiteral("InvalidToken"),
        QStringLiteral("ExpiredToken"),
        QStringLiteral("TokenRefreshRequired"),
        QStringLiteral("AccountProblem"),
        QStringLiteral("AllAccessDisabled"),
        QStringLiteral("InvalidSecurity"),
        QStringLiteral("RequestTimeTooSkewed"),
        QStringLiteral("MissingSecurityHeader"),
        QStringLiteral("InvalidPayer"),
        QStringLiteral("AuthorizationHeaderMalformed"),
        QStringLiteral("NotSignedUp"),
    };
    static const QSet<QString> configuration{
        QStringLiteral("InvalidBucketName"), QStringLiteral("PermanentRedirect"),
        QStringLiteral("TemporaryRedirect"), QStringLiteral("IllegalLocationConstraintException"),
        QStringLiteral("InvalidURI"),
    };
    if (authorization.contains(code))
        return Operation::Error::Authorization;
    if (code == QLatin1String("NoSuchBucket"))
        return Operation::Error::ContainerNotFound;
    if (code == QLatin1String("NoSuchKey"))
        return Operation::Error::ObjectNotFound;
    if (configuration.contains(code))
        return Operation::Error::InvalidConfiguration;
    return Operation::Error::Unknown;
}

} // namespace

S3Client::S3Client(const Settings& settings) : m_settings(settings) {}

bool S3Client::usesVirtualHost(const Request& request) const
{
    return m_settings.virtualHosted && !request.toService && !m_settings.bucket.isEmpty();
}

QString S3Client::hostOf(const Request& request) const
{
    return usesVirtualHost(request) ? m_settings.bucket + QLatin1Char('.') + m_settings.host
                                    : m_settings.host;
}

QString S3Client::authority(const Request& request) const
{
    Kel::Network::Endpoint endpoint;
    endpoint.host = hostOf(request);
    endpoint.port = m_settings.port;
    return m_settings.port > 0 ? endpoint.authority(0) : endpoint.urlHost();
}

QByteArray S3Client::path(const Request& request) const
{
    QByteArray path = "/";
    if (!request.toService && !usesVirtualHost(request)) {
        path += S3Uri::encode(m_settings.bucket, false);
        if (!request.key.isEmpty())
            path += '/';
    }
    if (!request.toService)
        path += S3Uri::encode(request.key, true);
    return path;
}

QByteArray S3Client::url(const Request& request) const
{
    QByteArray result =
        m_settings.scheme.toLatin1() + "://" + authority(request).toUtf8() + path(request);
    if (!request.query.isEmpty())
        result += '?' + S3Uri::query(request.query);
    return result;
}

QList<QByteArray> S3Client::headersFor(const Request& request) const
{
    const bool hasBody = request.method == "PUT" || request.method == "POST";
    QList<QByteArray> headers;
    QByteArray contentType;
    QByteArray contentMd5;
    if (hasBody) {
        contentType = request.contentType;
        contentMd5 = QCryptographicHash::hash(request.body, QCryptographicHash::Md5).toBase64();
        headers << "Content-Type: " + contentType << "Content-MD5: " + contentMd5;
    }
    for (const auto& header : request.headers)
        headers << header.first + ": " + header.second;
    if (m_settings.signature == Signature::AWS4) {
        // The library signs with whatever this header says is the payload's
        // hash; S3 wants it on every request.
        headers << "x-amz-content-sha256: " +
                       QCryptographicHash::hash(request.body, QCryptographicHash::Sha256).toHex();
        return headers;
    }
    // A round trip to ask whether the body may come buys nothing here. (With
    // version 4 the library would sign this removal as an empty header; there
    // a zero wait does the same.)
    headers << "Expect:";
    const QByteArray date = QLocale::c()
                                .toString(QDateTime::currentDateTimeUtc(),
                                          QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"))
                                .toLatin1();
    // The signed resource is the path as sent, with the bucket in front when
    // the bucket is in the host name.
    const QByteArray bucketInHost =
        usesVirtualHost(request) ? '/' + S3Uri::encode(m_settings.bucket, false) : QByteArray();
    const QByteArray resource = Aws2Signer::resource(bucketInHost + path(request), request.query);
    // The time goes in x-amz-date rather than Date, which proxies may
    // rewrite; it is then signed among the x-amz- headers and the Date line
    // stays empty.
    const QByteArray text = Aws2Signer::stringToSign(request.method, contentMd5, contentType, {},
                                                     {{"x-amz-date", date}}, resource);
    headers << "x-amz-date: " + date
            << "Authorization: " +
                   Aws2Signer::authorization(m_settings.accessKey,
                                             Aws2Signer::sign(m_settings.secretKey, text));
    return headers;
}

S3Client::Outcome S3Client::attempt(const Request& request, Response* response, Status* status)
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
    const QByteArray address = url(request);
    HeaderList headers;
    for (const QByteArray& header : headersFor(request))
        headers.append(header);
    Transfer transfer;
    transfer.curl = curl;
    transfer.response = response;
    transfer.sink = request.sink;
    char detail[CURL_ERROR_SIZE] = {};

    curl_easy_setopt(curl, CURLOPT_URL, address.constData());
    curl_easy_setopt(curl, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(curl, CURLOPT_PATH_AS_IS, 1L);
    curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(curl, CURLOPT_TCP_KEEPALIVE, 1L);
    curl_easy_setopt(curl, CURLOPT_CONNECTTIMEOUT_MS, ConnectTimeoutMs);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_LIMIT, 1L);
    curl_easy_setopt(curl, CURLOPT_LOW_SPEED_TIME, StallSeconds);
    curl_easy_setopt(curl, CURLOPT_ERRORBUFFER, detail);
    curl_easy_setopt(curl, CURLOPT_EXPECT_100_TIMEOUT_MS, 0L);
    curl_easy_setopt(curl, CURLOPT_HTTPHEADER, headers.list);
    curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, &receiveBody);
    curl_easy_setopt(curl, CURLOPT_WRITEDATA, &transfer);
    curl_easy_setopt(curl, CURLOPT_HEADERFUNCTION, &receiveHeader);
    curl_easy_setopt(curl, CURLOPT_HEADERDATA, &transfer);
    m_settings.proxy.applyTo(curl);
    Kel::Network::Ssl::CurlTls::apply(curl);
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
    if (m_settings.signature == Signature::AWS4) {
        const QByteArray scheme = "aws:amz:" + m_settings.region.toUtf8() + ":s3";
        curl_easy_setopt(curl, CURLOPT_AWS_SIGV4, scheme.constData());
        curl_easy_setopt(curl, CURLOPT_USERNAME, m_settings.accessKey.constData());
        curl_easy_setopt(curl, CURLOPT_PASSWORD, m_settings.secretKey.constData());
    }

    const CURLcode result = curl_easy_perform(curl);
    if (result != CURLE_OK) {
        *status =
            transportFailure(result, Kel::Network::CurlHandle::errorText(result, detail), request);
        const bool transient =
            result == CURLE_GOT_NOTHING || result == CURLE_SEND_ERROR || result == CURLE_RECV_ERROR;
        return transient && !transfer.delivered ? Outcome::Retry : Outcome::Failed;
    }
    long code = 0;
    curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &code);
    response->status = static_cast<int>(code);
    if (code >= 200 && code < 300) {
        *status = Status::success();
        return Outcome::Done;
    }
    *status = httpFailure(request, *response);
    return isRetried(response->status) ? Outcome::Retry : Outcome::Failed;
}

Status S3Client::send(const Request& request, Response* response)
{
    bool regionFollowed = false;
    for (int attempt = 0;; ++attempt) {
        Status status;
        const Outcome outcome = this->attempt(request, response, &status);
        if (outcome == Outcome::Done)
            return status;
        if (outcome == Outcome::Failed && !regionFollowed && followRegion(*response)) {
            regionFollowed = true;
            --attempt;
            continue;
        }
        if (outcome == Outcome::Failed || attempt >= m_settings.retryAttempts)
            return status;
        QThread::msleep(static_cast<unsigned long>(waitBefore(attempt, *response)));
    }
}

int S3Client::waitBefore(int attempt, const Response& response) const
{
    bool seconds = false;
    const int retryAfter = response.headers.value("retry-after").toInt(&seconds);
    if (seconds && retryAfter >= 0)
        return qMin(retryAfter * 1000, MaxWaitMs);
    const qint64 wait = static_cast<qint64>(m_settings.retryInterval) << qMin(attempt, 16);
    return static_cast<int>(qMin<qint64>(wait, MaxWaitMs));
}

bool S3Client::followRegion(const Response& response)
{
    // A bucket of another region: the service names it in this header on the
    // refusal, and the request is signed for that region again.
    const QString region = QString::fromUtf8(response.headers.value("x-amz-bucket-region"));
    if (region.isEmpty() || region == m_settings.region)
        return false;
    m_settings.region = region;
    if (m_settings.host == QLatin1String("s3.amazonaws.com"))
        m_settings.host = QStringLiteral("s3.%1.amazonaws.com").arg(region);
    return true;
}

Status S3Client::transportFailure(int code, const QString& detail, const Request& request)
{
    const QString where = authority(request);
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
        Kel::Network::Endpoint peer;
        peer.host = hostOf(request);
        peer.port = m_settings.port;
        status.peerCertificates =
            Kel::Network::Ssl::fetchPeerCertificates(peer.authority(443), &error, m_settings.proxy);
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

Status S3Client::httpFailure(const Request& request, const Response& response) const
{
    S3Xml::Error error;
    if (S3Xml::parseError(response.body, &error) && !error.code.isEmpty()) {
        QString message = error.message.isEmpty()
                              ? error.code
                              : QStringLiteral("%1 (%2)").arg(error.message, error.code);
        if (!error.region.isEmpty())
            message += QStringLiteral("; the bucket is in region %1").arg(error.region);
        const Operation::Error kind = errorOfCode(error.code);
        return Status::failure(kind == Operation::Error::Unknown && response.status == 403
                                   ? Operation::Error::Authorization
                                   : kind,
                               message);
    }
    // Answers to HEAD carry no document: the status alone tells.
    const QString message = QStringLiteral("the server answered HTTP %1").arg(response.status);
    switch (response.status) {
    case 401:
    case 403:
        return Status::failure(Operation::Error::Authorization,
                               message + QStringLiteral(" (access denied)"));
    case 404:
        return request.key.isEmpty()
                   ? Status::failure(Operation::Error::ContainerNotFound,
                                     QStringLiteral("the bucket %1 does not exist (HTTP 404)")
                                         .arg(m_settings.bucket))
                   : Status::failure(Operation::Error::ObjectNotFound,
                                     QStringLiteral("no object %1 (HTTP 404)").arg(request.key));
    case 301:
    case 307:
        return Status::failure(Operation::Error::InvalidConfiguration,
                               message + QStringLiteral(" (the bucket is served elsewhere)"));
    default:
        return Status::failure(Operation::Error::Unknown, message);
    }
}

} // namespace Kel::Cloud
