#include "kelCloud/AzureBlobClient.h"

#include "kelCloud/AzureSharedKey.h"
#include "kelCloud/AzureXml.h"
#include "kelCloud/S3Uri.h"

#include <QDateTime>
#include <QLocale>
#include <QSet>
#include <QUrl>

namespace Kel::Cloud {

namespace {

// Percent-encodes what a path cannot hold as it is, and nothing more: the
// signature covers the path as sent, and servers that rebuild it from the
// decoded form encode exactly this set.
QByteArray encodePath(const QString& text)
{
    return text.toUtf8().toPercentEncoding(QByteArray("/;,:@&=+$!*'()"), QByteArray(), '%');
}

Operation::Error errorOfCode(const QString& code, int httpStatus, bool forBlob)
{
    static const QSet<QString> authorization{
        QStringLiteral("AuthenticationFailed"),
        QStringLiteral("AuthorizationFailure"),
        QStringLiteral("AuthorizationPermissionMismatch"),
        QStringLiteral("AuthorizationProtocolMismatch"),
        QStringLiteral("AuthorizationResourceTypeMismatch"),
        QStringLiteral("AuthorizationServiceMismatch"),
        QStringLiteral("AuthorizationSourceIPMismatch"),
        QStringLiteral("InsufficientAccountPermissions"),
        QStringLiteral("InvalidAuthenticationInfo"),
        QStringLiteral("AccountIsDisabled"),
        QStringLiteral("AccountRequiresHttps"),
        QStringLiteral("KeyBasedAuthenticationNotPermitted"),
    };
    if (authorization.contains(code))
        return Operation::Error::Authorization;
    if (code == QLatin1String("ContainerNotFound") ||
        code == QLatin1String("ContainerBeingDeleted"))
        return Operation::Error::ContainerNotFound;
    if (code == QLatin1String("BlobNotFound"))
        return Operation::Error::ObjectNotFound;
    if (code == QLatin1String("InvalidResourceName") || code == QLatin1String("OutOfRangeInput") ||
        code == QLatin1String("ResourceNotFound"))
        return Operation::Error::InvalidConfiguration;
    if (httpStatus == 401 || httpStatus == 403)
        return Operation::Error::Authorization;
    if (httpStatus == 404)
        return forBlob ? Operation::Error::ObjectNotFound : Operation::Error::ContainerNotFound;
    return Operation::Error::Unknown;
}

} // namespace

AzureBlobClient::AzureBlobClient(const Settings& settings)
    : m_settings(settings),
      m_servicePath(QUrl(QString::fromUtf8(settings.serviceUrl)).path(QUrl::FullyEncoded).toUtf8()),
      m_transport(settings.proxy)
{
}

QByteArray AzureBlobClient::path(const Request& request) const
{
    QByteArray path = m_servicePath + '/';
    if (request.toService)
        return path;
    path += encodePath(m_settings.container);
    if (!request.blob.isEmpty())
        path += '/' + encodePath(request.blob);
    return path;
}

QByteArray AzureBlobClient::url(const Request& request) const
{
    const int pathStart = m_settings.serviceUrl.size() - m_servicePath.size();
    QByteArray result = m_settings.serviceUrl.left(pathStart) + path(request);
    if (!request.query.isEmpty())
        result += '?' + S3Uri::query(request.query);
    return result;
}

QList<QPair<QByteArray, QByteArray>> AzureBlobClient::signedHeaders(const Request& request,
                                                                    const QDateTime& time) const
{
    QList<QPair<QByteArray, QByteArray>> headers = request.headers;
    const QByteArray date =
        QLocale::c()
            .toString(time.toUTC(), QStringLiteral("ddd, dd MMM yyyy HH:mm:ss 'GMT'"))
            .toLatin1();
    headers.append(qMakePair(QByteArray("x-ms-date"), date));
    headers.append(qMakePair(QByteArray("x-ms-version"), QByteArray(Version)));
    if (request.method == "PUT" || request.method == "POST") {
        headers.append(qMakePair(QByteArray("Content-Type"), request.contentType));
        headers.append(
            qMakePair(QByteArray("Content-Length"), QByteArray::number(request.body.size())));
    }
    const QByteArray text = AzureSharedKey::stringToSign(
        request.method, headers, m_settings.account, path(request), request.query);
    const QByteArray authorization =
        AzureSharedKey::authorization(m_settings.account, m_settings.key, text);
    if (!authorization.isEmpty())
        headers.append(qMakePair(QByteArray("Authorization"), authorization));
    return headers;
}

HttpTransport::Outcome AzureBlobClient::attempt(const Request& request, Response* response,
                                                Status* status)
{
    HttpTransport::Request exchange;
    exchange.method = request.method;
    exchange.url = url(request);
    for (const auto& header : signedHeaders(request, QDateTime::currentDateTimeUtc()))
        exchange.headers << header.first + ": " + header.second;
    exchange.headers << "Expect:";
    exchange.body = request.body;
    exchange.sink = request.sink;
    const HttpTransport::Outcome outcome = m_transport.perform(exchange, response, status);
    if (outcome != HttpTransport::Outcome::Done)
        return outcome;
    if (response->status >= 200 && response->status < 300)
        return outcome;
    *status = httpFailure(request, *response);
    return HttpTransport::isRetriedStatus(response->status) ? HttpTransport::Outcome::Retry
                                                            : HttpTransport::Outcome::Failed;
}

Status AzureBlobClient::send(const Request& request, Response* response)
{
    return HttpTransport::repeat(m_settings.retryAttempts, m_settings.retryInterval, response,
                                 [this, &request](Response* answer, Status* status) {
                                     return attempt(request, answer, status);
                                 });
}

Status AzureBlobClient::httpFailure(const Request& request, const Response& response) const
{
    AzureXml::Error error;
    // Every answer names its error in a header; HEAD answers have nothing else.
    if (!AzureXml::parseError(response.body, &error))
        error.code = QString::fromUtf8(response.headers.value("x-ms-error-code"));
    const bool forBlob = !request.blob.isEmpty();
    const Operation::Error kind = errorOfCode(error.code, response.status, forBlob);
    QString message;
    if (!error.message.isEmpty())
        message = QStringLiteral("%1 (%2)").arg(error.message, error.code);
    else if (!error.code.isEmpty())
        message = QStringLiteral("%1 (HTTP %2)").arg(error.code).arg(response.status);
    else
        message = QStringLiteral("the server answered HTTP %1").arg(response.status);
    if (kind == Operation::Error::ContainerNotFound && error.message.isEmpty())
        message = QStringLiteral("the container %1 does not exist (%2)")
                      .arg(m_settings.container, message);
    if (kind == Operation::Error::ObjectNotFound && error.message.isEmpty())
        message = QStringLiteral("no object %1 (%2)").arg(request.blob, message);
    return Status::failure(kind, message);
}

} // namespace Kel::Cloud
