#include "orvCommon/EmailAddressesConfirmed.h"

#include "kelNetwork/HttpClient.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/ProxyRecord.h"
#include "orvCommon/Rebranding.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcConfirm, "orv.email")

namespace Orv::Common {

namespace {

constexpr int kHttpOk = 200;

void applyProxy(Kel::Network::HttpClient::Request& request)
{
    const ProxyRecord proxy = proxySettings();
    if (!proxy.enabled() || proxy.address.isEmpty())
        return;
    const QString scheme = proxy.type == ProxyRecord::Type::Socks5 ? QStringLiteral("socks5h://")
                                                                   : QStringLiteral("http://");
    request.proxyUrl = scheme + proxy.address + QLatin1Char(':') + QString::number(proxy.port);
    if (!proxy.useAuth)
        return;
    request.proxyUser = proxy.user;
    QString reason;
    const std::optional<QString> password = proxy.plainPassword(&reason);
    if (password)
        request.proxyPassword = *password;
    else
        qCWarning(lcConfirm) << "Proxy password unavailable:" << reason;
}

} // namespace

bool EmailAddressesConfirmed::isAllowed(const QString& userName, const QString& addresses)
{
    m_status = 0;
    m_error.clear();

    QJsonArray emails;
    const QStringList list = addresses.split(QLatin1Char(';'), Qt::SkipEmptyParts);
    for (const QString& address : list)
        emails.append(address);
    const QJsonObject body{{QStringLiteral("user_name"), userName},
                           {QStringLiteral("emails"), emails}};

    Kel::Network::HttpClient::Request request;
    request.url = Defines::Rebranding::instance()
                      ->value(RebrandingKeys::General::EmailConfirmationUrl)
                      .toString();
    request.method = "POST";
    request.headers = {{"Content-Type", "application/json"}, {"Accept", "application/json"}};
    request.body = QJsonDocument(body).toJson(QJsonDocument::Compact);
    request.verifyPeer = DefaultSettings::instance()->getIgnoreSSL() != QLatin1String("true");
    applyProxy(request);

    const Kel::Network::HttpClient::Response response = Kel::Network::HttpClient::send(request);
    if (response.status != kHttpOk) {
        m_status = response.status;
        m_error = response.error.isEmpty()
                      ? QStringLiteral("the service answered %1").arg(response.status)
                      : response.error;
        qCWarning(lcConfirm) << "E-mail confirmation service:" << m_error;
        return false;
    }
    const QJsonDocument answer = QJsonDocument::fromJson(response.body);
    const QJsonValue allowed = answer.object().value(QLatin1String("allowed"));
    if (!answer.isObject() || !allowed.isBool()) {
        m_error = QStringLiteral("the service's answer is not understood");
        qCWarning(lcConfirm) << "E-mail confirmation service:" << m_error;
        return false;
    }
    m_status = kHttpOk;
    return allowed.toBool();
}

} // namespace Orv::Common
