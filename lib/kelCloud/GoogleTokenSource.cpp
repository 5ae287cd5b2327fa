#include "kelCloud/GoogleTokenSource.h"

#include "kelCloud/GoogleJwt.h"

#include <QJsonDocument>
#include <QUrlQuery>

namespace Kel::Cloud {

namespace {

// The token endpoint words its refusals as {"error", "error_description"}.
Status failureOf(const HttpTransport::Response& response)
{
    const QJsonObject body = QJsonDocument::fromJson(response.body).object();
    const QString code = body.value(QStringLiteral("error")).toString();
    const QString description = body.value(QStringLiteral("error_description")).toString();
    QString message;
    if (!description.isEmpty())
        message = QStringLiteral("%1 (%2)").arg(description, code);
    else if (!code.isEmpty())
        message = QStringLiteral("%1 (HTTP %2)").arg(code).arg(response.status);
    else
        message = QStringLiteral("the token endpoint answered HTTP %1").arg(response.status);
    const bool refused = response.status == 400 || response.status == 401 || response.status == 403;
    return Status::failure(refused ? Operation::Error::Authorization : Operation::Error::Unknown,
                           QStringLiteral("no access token: ") + message);
}

QByteArray formBody(const QList<QPair<QString, QString>>& fields)
{
    QByteArray body;
    for (const auto& field : fields) {
        if (!body.isEmpty())
            body += '&';
        body += QUrl::toPercentEncoding(field.first) + '=' + QUrl::toPercentEncoding(field.second);
    }
    return body;
}

} // namespace

GoogleTokenSource::GoogleTokenSource(const Settings& settings)
    : m_settings(settings), m_transport(settings.proxy)
{
}

Status GoogleTokenSource::token(QByteArray* accessToken)
{
    if (m_token.isEmpty() || QDateTime::currentDateTimeUtc().secsTo(m_expires) < 60) {
        Status status;
        const QList<QPair<QString, QString>> form = grant(&status);
        if (status.ok())
            status = requestToken(form);
        if (!status.ok())
            return status;
    }
    *accessToken = m_token;
    return Status::success();
}

QList<QPair<QString, QString>> GoogleTokenSource::grant(Status* status) const
{
    *status = Status::success();
    if (m_settings.type == GoogleAuth::ServiceAcc) {
        GoogleJwt::Claims claims;
        claims.issuer = m_settings.serviceEmail;
        claims.scope = QLatin1String(Scope);
        claims.audience = QString::fromUtf8(m_settings.tokenUrl);
        claims.issuedAt = QDateTime::currentSecsSinceEpoch();
        QString error;
        const QByteArray assertion = GoogleJwt::assertion(claims, m_settings.privateKeyPem, &error);
        if (assertion.isEmpty())
            *status = Status::failure(Operation::Error::InvalidConfiguration, error);
        return {{QStringLiteral("grant_type"),
                 QStringLiteral("urn:ietf:params:oauth:grant-type:jwt-bearer")},
                {QStringLiteral("assertion"), QString::fromLatin1(assertion)}};
    }
    const QList<QPair<QString, QString>> client{
        {QStringLiteral("client_id"), m_settings.clientId},
        {QStringLiteral("client_secret"), m_settings.clientSecret}};
    if (!m_settings.refreshToken.isEmpty())
        return client + QList<QPair<QString, QString>>{
                            {QStringLiteral("grant_type"), QStringLiteral("refresh_token")},
                            {QStringLiteral("refresh_token"), m_settings.refreshToken}};
    return client + QList<QPair<QString, QString>>{
                        {QStringLiteral("grant_type"), QStringLiteral("authorization_code")},
                        {QStringLiteral("code"), m_settings.authCode},
                        {QStringLiteral("redirect_uri"), m_settings.redirectUri}};
}

Status GoogleTokenSource::requestToken(const QList<QPair<QString, QString>>& form)
{
    HttpTransport::Request request;
    request.method = "POST";
    request.url = m_settings.tokenUrl;
    request.headers << "Content-Type: application/x-www-form-urlencoded";
    request.body = formBody(form);
    HttpTransport::Response response;
    const Status status = HttpTransport::repeat(
        m_settings.retryAttempts, m_settings.retryInterval, &response,
        [this, &request](HttpTransport::Response* answer, Status* result) {
            const HttpTransport::Outcome outcome = m_transport.perform(request, answer, result);
            if (outcome != HttpTransport::Outcome::Done ||
                (answer->status >= 200 && answer->status < 300))
                return outcome;
            *result = failureOf(*answer);
            return HttpTransport::isRetriedStatus(answer->status) ? HttpTransport::Outcome::Retry
                                                                  : HttpTransport::Outcome::Failed;
        });
    if (!status.ok())
        return status;
    const QJsonObject answer = QJsonDocument::fromJson(response.body).object();
    m_token = answer.value(QStringLiteral("access_token")).toString().toUtf8();
    if (m_token.isEmpty())
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the token endpoint gave no access token"));
    const int lifetime = answer.value(QStringLiteral("expires_in")).toInt(3600);
    m_expires = QDateTime::currentDateTimeUtc().addSecs(lifetime);
    // An authorisation code is good for one exchange; the refresh token it
    // gave is what the account keeps.
    const QString refresh = answer.value(QStringLiteral("refresh_token")).toString();
    if (!refresh.isEmpty())
        m_settings.refreshToken = refresh;
    return Status::success();
}

} // namespace Kel::Cloud
