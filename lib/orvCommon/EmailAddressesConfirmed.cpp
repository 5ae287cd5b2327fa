#include "orvCommon/EmailAddressesConfirmed.h"

#include "orvCommon/DefaultSettings.h"
#include "orvCommon/ProxyRecord.h"
#include "orvCommon/Rebranding.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QTimer>

Q_LOGGING_CATEGORY(lcConfirm, "orv.email")

namespace Orv::Common {

namespace {

constexpr int kHttpOk = 200;
constexpr int kTimeoutMs = 30000;
// The service answers a few bytes; a runaway peer must not fill memory.
constexpr qint64 kMaxAnswer = 1024 * 1024;

// The installation's proxy, or a direct connection whatever the
// environment's proxy variables say.
QNetworkProxy proxy()
{
    const ProxyRecord record = proxySettings();
    if (!record.enabled() || record.address.isEmpty())
        return QNetworkProxy(QNetworkProxy::NoProxy);
    QNetworkProxy proxy(record.type == ProxyRecord::Type::Socks5 ? QNetworkProxy::Socks5Proxy
                                                                 : QNetworkProxy::HttpProxy,
                        record.address, static_cast<quint16>(record.port));
    if (!record.useAuth)
        return proxy;
    proxy.setUser(record.user);
    QString reason;
    const std::optional<QString> password = record.plainPassword(&reason);
    if (password)
        proxy.setPassword(*password);
    else
        qCWarning(lcConfirm) << "Proxy password unavailable:" << reason;
    return proxy;
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

    // Qt's own HTTP stack: TLS libraries are loaded only when this request
    // needs them, not at every start of the programs that can make it.
    QNetworkRequest request(QUrl(Defines::Rebranding::instance()
                                     ->value(RebrandingKeys::General::EmailConfirmationUrl)
                                     .toString()));
    request.setHeader(QNetworkRequest::ContentTypeHeader, QByteArrayLiteral("application/json"));
    request.setRawHeader("Accept", "application/json");
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute,
                         QNetworkRequest::NoLessSafeRedirectPolicy);
    QNetworkAccessManager manager;
    manager.setProxy(proxy());
    QNetworkReply* reply =
        manager.post(request, QJsonDocument(body).toJson(QJsonDocument::Compact));
    if (DefaultSettings::instance()->getIgnoreSSL() == QLatin1String("true"))
        reply->ignoreSslErrors();
    QEventLoop loop;
    QTimer deadline;
    deadline.setSingleShot(true);
    QObject::connect(&deadline, &QTimer::timeout, reply, &QNetworkReply::abort);
    QObject::connect(reply, &QNetworkReply::downloadProgress, reply, [reply](qint64 received) {
        if (received > kMaxAnswer)
            reply->abort();
    });
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    deadline.start(kTimeoutMs);
    if (!reply->isFinished())
        loop.exec();

    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    const QByteArray answerBody = reply->read(kMaxAnswer + 1);
    const bool answered = status.isValid() &&
                          reply->error() != QNetworkReply::OperationCanceledError &&
                          answerBody.size() <= kMaxAnswer;
    const QString failure = reply->errorString();
    reply->deleteLater();
    if (!answered || status.toInt() != kHttpOk) {
        m_status = answered ? status.toInt() : 0;
        m_error = answered ? QStringLiteral("the service answered %1").arg(m_status) : failure;
        qCWarning(lcConfirm) << "E-mail confirmation service:" << m_error;
        return false;
    }
    const QJsonDocument answer = QJsonDocument::fromJson(answerBody);
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
