#include "kelCloud/GoogleStorageClient.h"

#include "kelCloud/S3Uri.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace Kel::Cloud {

GoogleStorageClient::GoogleStorageClient(const QByteArray& serviceUrl, const QString& bucket,
                                         const GoogleTokenSource::Settings& tokens)
    : m_serviceUrl(serviceUrl), m_bucket(bucket), m_retryAttempts(tokens.retryAttempts),
      m_retryInterval(tokens.retryInterval), m_tokens(tokens), m_transport(tokens.proxy)
{
}

QByteArray GoogleStorageClient::url(const Request& request) const
{
    QByteArray result = request.url.isEmpty() ? m_serviceUrl + request.path : request.url;
    if (!request.query.isEmpty())
        result += '?' + S3Uri::query(request.query);
    return result;
}

HttpTransport::Outcome GoogleStorageClient::attempt(const Request& request, Response* response,
                                                    Status* status)
{
    QByteArray token;
    *status = m_tokens.token(&token);
    if (!status->ok())
        return HttpTransport::Outcome::Failed;
    HttpTransport::Request exchange;
    exchange.method = request.method;
    exchange.url = url(request);
    exchange.headers = request.headers;
    exchange.headers << "Authorization: Bearer " + token;
    exchange.body = request.body;
    exchange.sink = request.sink;
    const HttpTransport::Outcome outcome = m_transport.perform(exchange, response, status);
    if (outcome != HttpTransport::Outcome::Done)
        return outcome;
    if ((response->status >= 200 && response->status < 300) ||
        response->status == request.alsoSuccess)
        return outcome;
    *status = failureOf(request, *response);
    return HttpTransport::isRetriedStatus(response->status) ? HttpTransport::Outcome::Retry
                                                            : HttpTransport::Outcome::Failed;
}

Status GoogleStorageClient::send(const Request& request, Response* response)
{
    for (bool renewed = false;; renewed = true) {
        const Status status =
            HttpTransport::repeat(m_retryAttempts, m_retryInterval, response,
                                  [this, &request](Response* answer, Status* result) {
                                      return attempt(request, answer, result);
                                  });
        // A token may be revoked or expire early: one fresh token is tried.
        if (status.ok() || renewed || response->status != 401)
            return status;
        m_tokens.invalidate();
    }
}

Status GoogleStorageClient::failureOf(const Request& request, const Response& response) const
{
    const QJsonObject error =
        QJsonDocument::fromJson(response.body).object().value(QStringLiteral("error")).toObject();
    const QString text = error.value(QStringLiteral("message")).toString();
    const QString reason = error.value(QStringLiteral("errors"))
                               .toArray()
                               .first()
                               .toObject()
                               .value(QStringLiteral("reason"))
                               .toString();
    QString message;
    if (!text.isEmpty())
        message = reason.isEmpty() ? text : QStringLiteral("%1 (%2)").arg(text, reason);
    else
        message = QStringLiteral("the server answered HTTP %1").arg(response.status);
    switch (response.status) {
    case 401:
    case 403:
        return Status::failure(Operation::Error::Authorization, message);
    case 404: {
        const bool bucket = !request.forObject ||
                            text.contains(QLatin1String("specified bucket"), Qt::CaseInsensitive);
        if (bucket && text.isEmpty())
            message = QStringLiteral("the bucket %1 does not exist (HTTP 404)").arg(m_bucket);
        return Status::failure(bucket ? Operation::Error::ContainerNotFound
                                      : Operation::Error::ObjectNotFound,
                               message);
    }
    default:
        return Status::failure(Operation::Error::Unknown, message);
    }
}

} // namespace Kel::Cloud
