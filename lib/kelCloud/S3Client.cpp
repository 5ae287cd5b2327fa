#include "kelCloud/S3Client.h"

#include "kelCloud/Aws2Signer.h"
#include "kelCloud/S3Uri.h"
#include "kelCloud/S3Xml.h"
#include "kelNetwork/Endpoint.h"

#include <QCryptographicHash>
#include <QDateTime>
#include <QLocale>
#include <QSet>
#include <curl/curl.h>

namespace Kel::Cloud {

using Info::AmazonS3Like::Signature;

namespace {

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

S3Client::S3Client(const Settings& settings) : m_settings(settings), m_transport(settings.proxy) {}

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

HttpTransport::Outcome S3Client::attempt(const Request& request, Response* response, Status* status)
{
    HttpTransport::Request exchange;
    exchange.method = request.method;
    exchange.url = url(request);
    exchange.headers = headersFor(request);
    exchange.body = request.body;
    exchange.sink = request.sink;
    if (m_settings.signature == Signature::AWS4) {
        const QByteArray scheme = "aws:amz:" + m_settings.region.toUtf8() + ":s3";
        exchange.prepare = [this, scheme](CURL* curl) {
            curl_easy_setopt(curl, CURLOPT_AWS_SIGV4, scheme.constData());
            curl_easy_setopt(curl, CURLOPT_USERNAME, m_settings.accessKey.constData());
            curl_easy_setopt(curl, CURLOPT_PASSWORD, m_settings.secretKey.constData());
        };
    }
    const HttpTransport::Outcome outcome = m_transport.perform(exchange, response, status);
    if (outcome != HttpTransport::Outcome::Done ||
        (response->status >= 200 && response->status < 300))
        return outcome;
    *status = httpFailure(request, *response);
    return HttpTransport::isRetriedStatus(response->status) ? HttpTransport::Outcome::Retry
                                                            : HttpTransport::Outcome::Failed;
}

Status S3Client::send(const Request& request, Response* response)
{
    bool regionFollowed = false;
    return HttpTransport::repeat(m_settings.retryAttempts, m_settings.retryInterval, response,
                                 [&](Response* answer, Status* status) {
                                     HttpTransport::Outcome outcome =
                                         attempt(request, answer, status);
                                     // A bucket of another region is asked again at once, signed
                                     // for it: that is no repeat.
                                     if (outcome == HttpTransport::Outcome::Failed &&
                                         !regionFollowed && followRegion(*answer)) {
                                         regionFollowed = true;
                                         outcome = attempt(request, answer, status);
                                     }
                                     return outcome;
                                 });
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
