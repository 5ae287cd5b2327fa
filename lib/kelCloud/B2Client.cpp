#include "kelCloud/B2Client.h"

#include "kelCloud/S3Uri.h"

#include <QCryptographicHash>
#include <QJsonDocument>

namespace Kel::Cloud {

namespace {

struct ServiceError
{
    int status = 0;
    QString code;
    QString message;
};

ServiceError errorOf(const HttpTransport::Response& response)
{
    const QJsonObject body = QJsonDocument::fromJson(response.body).object();
    return {response.status, body.value(QStringLiteral("code")).toString(),
            body.value(QStringLiteral("message")).toString()};
}

Status failureOf(const HttpTransport::Response& response)
{
    const ServiceError error = errorOf(response);
    QString message;
    if (!error.message.isEmpty())
        message = QStringLiteral("%1 (%2)").arg(error.message, error.code);
    else if (!error.code.isEmpty())
        message = QStringLiteral("%1 (HTTP %2)").arg(error.code).arg(error.status);
    else
        message = QStringLiteral("the server answered HTTP %1").arg(error.status);
    Operation::Error kind = Operation::Error::Unknown;
    if (error.status == 401 || error.code == QLatin1String("access_denied"))
        kind = Operation::Error::Authorization;
    else if (error.code == QLatin1String("bad_bucket_id"))
        kind = Operation::Error::ContainerNotFound;
    else if (error.status == 404)
        kind = Operation::Error::ObjectNotFound;
    return Status::failure(kind, message);
}

// A token that has run out (or an answer without a body, as to HEAD, that
// cannot tell): authorising again may mend it.
bool tokenExpired(const HttpTransport::Response& response)
{
    if (response.status != 401)
        return false;
    const QString code = errorOf(response).code;
    return code.isEmpty() || code == QLatin1String("expired_auth_token") ||
           code == QLatin1String("bad_auth_token");
}

QByteArray jsonBody(const QJsonObject& object)
{
    return QJsonDocument(object).toJson(QJsonDocument::Compact);
}

Status unreadable(const char* what)
{
    return Status::failure(
        Operation::Error::Unknown,
        QStringLiteral("the answer to %1 cannot be read").arg(QLatin1String(what)));
}

} // namespace

B2Client::B2Client(const Settings& settings) : m_settings(settings), m_transport(settings.proxy) {}

QByteArray B2Client::encodeName(const QString& name)
{
    return S3Uri::encode(name, true);
}

HttpTransport::Outcome B2Client::attempt(const HttpTransport::Request& request, Response* response,
                                         Status* status)
{
    const HttpTransport::Outcome outcome = m_transport.perform(request, response, status);
    if (outcome != HttpTransport::Outcome::Done)
        return outcome;
    if (response->status >= 200 && response->status < 300)
        return outcome;
    *status = failureOf(*response);
    return HttpTransport::isRetriedStatus(response->status) ? HttpTransport::Outcome::Retry
                                                            : HttpTransport::Outcome::Failed;
}

Status B2Client::exchange(const Build& build, bool authorized, Response* response)
{
    for (bool renewed = false;; renewed = true) {
        if (authorized) {
            const Status status = authorize();
            if (!status.ok())
                return status;
        }
        const Status status =
            HttpTransport::repeat(m_settings.retryAttempts, m_settings.retryInterval, response,
                                  [this, &build](Response* answer, Status* result) {
                                      return attempt(build(), answer, result);
                                  });
        if (!authorized || renewed || status.ok() || !tokenExpired(*response))
            return status;
        m_account.token.clear();
    }
}

Status B2Client::authorize()
{
    return m_account.token.isEmpty() ? authorizeNow() : Status::success();
}

Status B2Client::authorizeNow()
{
    const QByteArray credentials =
        (m_settings.keyId + QLatin1Char(':') + m_settings.applicationKey).toUtf8().toBase64();
    Response response;
    const Status status = exchange(
        [this, &credentials] {
            HttpTransport::Request request;
            request.url = m_settings.authorizeUrl + "/b2api/v2/b2_authorize_account";
            request.headers << "Authorization: Basic " + credentials;
            return request;
        },
        false, &response);
    if (!status.ok())
        return status;
    const QJsonObject answer = QJsonDocument::fromJson(response.body).object();
    Account account;
    account.accountId = answer.value(QStringLiteral("accountId")).toString();
    account.token = answer.value(QStringLiteral("authorizationToken")).toString().toUtf8();
    account.apiUrl = answer.value(QStringLiteral("apiUrl")).toString().toUtf8();
    account.downloadUrl = answer.value(QStringLiteral("downloadUrl")).toString().toUtf8();
    const QJsonObject allowed = answer.value(QStringLiteral("allowed")).toObject();
    account.allowedBucketId = allowed.value(QStringLiteral("bucketId")).toString();
    account.allowedBucketName = allowed.value(QStringLiteral("bucketName")).toString();
    account.minimumPartSize =
        answer.value(QStringLiteral("absoluteMinimumPartSize")).toVariant().toLongLong();
    if (account.token.isEmpty() || account.apiUrl.isEmpty() || account.downloadUrl.isEmpty())
        return unreadable("b2_authorize_account");
    m_account = account;
    return Status::success();
}

Status B2Client::call(const char* operation, const QJsonObject& request, QJsonObject* answer)
{
    Response response;
    const Status status = exchange(
        [this, operation, &request] {
            HttpTransport::Request post;
            post.method = "POST";
            post.url = m_account.apiUrl + "/b2api/v2/" + operation;
            post.headers << "Authorization: " + m_account.token << "Content-Type: application/json";
            post.body = jsonBody(request);
            return post;
        },
        true, &response);
    if (!status.ok())
        return status;
    const QJsonDocument document = QJsonDocument::fromJson(response.body);
    if (!document.isObject())
        return unreadable(operation);
    *answer = document.object();
    return Status::success();
}

Status B2Client::download(const QByteArray& method, const QString& bucketName, const QString& name,
                          const QList<QByteArray>& headers, QIODevice* sink, Response* response)
{
    return exchange(
        [&] {
            HttpTransport::Request request;
            request.method = method;
            request.url = m_account.downloadUrl + "/file/" + S3Uri::encode(bucketName, false) +
                          '/' + encodeName(name);
            request.headers = headers;
            request.headers << "Authorization: " + m_account.token;
            request.sink = sink;
            return request;
        },
        true, response);
}

Status B2Client::upload(const UploadTarget& target, const QList<QByteArray>& headers,
                        const QByteArray& data, QJsonObject* answer)
{
    const QByteArray sha1 = QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex();
    QByteArray url;
    QByteArray token;
    Response response;
    const Status status = HttpTransport::repeat(
        m_settings.retryAttempts, m_settings.retryInterval, &response,
        [&](Response* answered, Status* result) {
            if (url.isEmpty()) {
                QJsonObject place;
                *result = call(target.operation, target.request, &place);
                if (!result->ok())
                    return HttpTransport::Outcome::Failed;
                url = place.value(QStringLiteral("uploadUrl")).toString().toUtf8();
                token = place.value(QStringLiteral("authorizationToken")).toString().toUtf8();
            }
            HttpTransport::Request request;
            request.method = "POST";
            request.url = url;
            request.headers = headers;
            request.headers << "Authorization: " + token << "X-Bz-Content-Sha1: " + sha1;
            request.body = data;
            const HttpTransport::Outcome outcome = attempt(request, answered, result);
            if (outcome == HttpTransport::Outcome::Done)
                return outcome;
            // A busy upload URL, or one whose token ran out, is given up for
            // a fresh one.
            url.clear();
            return outcome == HttpTransport::Outcome::Retry || answered->status == 401
                       ? HttpTransport::Outcome::Retry
                       : HttpTransport::Outcome::Failed;
        });
    if (!status.ok())
        return status;
    *answer = QJsonDocument::fromJson(response.body).object();
    return Status::success();
}

} // namespace Kel::Cloud
