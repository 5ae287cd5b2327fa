#include "service/maintenance/UpdateHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "orvCommon/Rebranding.h"
#include "service/ServiceLog.h"
#include "service/channel/HandlerRegistry.h"
#include "service/maintenance/WebRequest.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QUrl>
#include <QVersionNumber>

namespace Orv::Service {

namespace {

namespace Feed = Orv::Common::Communication::Commands::Format::System::ProductInformation;
namespace Update = Orv::Common::Communication::Notification::Format::System::Update;
namespace Progress = Orv::Common::Communication::Notification::Format::System::UpdateProgress;

constexpr int FeedTimeoutMs = 20000;

bool isDownloadUrl(const QString& text)
{
    const QUrl url(text, QUrl::StrictMode);
    return url.isValid() && !url.host().isEmpty() &&
           (url.scheme() == QLatin1String("https") || url.scheme() == QLatin1String("http"));
}

bool isSha256(const QString& text)
{
    static const QRegularExpression hex(QStringLiteral("^[0-9a-fA-F]{64}$"));
    return hex.match(text).hasMatch();
}

// The feed's answer checked member by member; empty or what is wrong.
QString checkFeed(const QJsonObject& feed)
{
    if (QVersionNumber::fromString(feed.value(QLatin1String(Feed::Reply::Version)).toString())
            .isNull())
        return QStringLiteral("no version");
    if (!isDownloadUrl(feed.value(QLatin1String(Feed::Reply::Url)).toString()))
        return QStringLiteral("no download address");
    if (feed.value(QLatin1String(Feed::Reply::Size)).toDouble() < 1)
        return QStringLiteral("no size");
    if (!isSha256(feed.value(QLatin1String(Feed::Reply::Sha256)).toString()))
        return QStringLiteral("no SHA-256");
    return QString();
}

// The package's own name, from the last part of its address.
QString packageName(const QString& url)
{
    const QString name = QUrl(url).fileName();
    static const QRegularExpression safe(QStringLiteral("^[A-Za-z0-9][A-Za-z0-9._+~-]*$"));
    return safe.match(name).hasMatch() && !name.endsWith(QLatin1String(".part"))
               ? name
               : QStringLiteral("orv-update.pkg");
}

QByteArray sha256Of(QFile* file)
{
    QCryptographicHash hash(QCryptographicHash::Sha256);
    file->seek(0);
    hash.addData(file);
    return hash.result().toHex();
}

} // namespace

UpdateHandler::UpdateHandler(const QString& folder, Broadcast broadcast, QObject* parent)
    : QObject(parent), m_folder(folder), m_broadcast(std::move(broadcast))
{
    m_pool.setExpiryTimeout(0);
}

UpdateHandler::~UpdateHandler()
{
    m_stopping = true;
    m_pool.waitForDone();
}

void UpdateHandler::install(HandlerRegistry& registry)
{
    registry.addNamedAsync(
        QLatin1String(Feed::Name),
        [this](const QJsonObject&, const RequestContext&, const NamedResponder& responder) {
            productInformation(responder);
        });
    registry.addNotification(Update::Type, [this](const QJsonObject& message,
                                                  const RequestContext&) { update(message); });
}

void UpdateHandler::productInformation(const NamedResponder& responder)
{
    const QString url = Orv::Defines::Rebranding::instance()
                            ->value(RebrandingKeys::General::UpdateFeedUrl)
                            .toString();
    m_pool.start([this, url, responder] {
        const Web::Reply reply =
            Web::send("GET", url, {"Accept: application/json"}, QByteArray(), FeedTimeoutMs);
        QString failure;
        const QJsonObject feed = QJsonDocument::fromJson(reply.body).object();
        if (!reply.ok())
            failure = reply.failure(
                QStringLiteral("the product information cannot be read from %1").arg(url));
        else if (const QString wrong = checkFeed(feed); !wrong.isEmpty())
            failure =
                QStringLiteral("the product information at %1 is not usable: %2").arg(url, wrong);
        QMetaObject::invokeMethod(
            this,
            [failure, feed, responder] {
                if (!failure.isEmpty()) {
                    qCWarning(lcService).noquote() << "Update check:" << failure;
                    responder.failure(failure);
                    return;
                }
                responder.success(
                    {{QLatin1String(Feed::Reply::Version),
                      feed.value(QLatin1String(Feed::Reply::Version))},
                     {QLatin1String(Feed::Reply::Url), feed.value(QLatin1String(Feed::Reply::Url))},
                     {QLatin1String(Feed::Reply::Size),
                      feed.value(QLatin1String(Feed::Reply::Size))},
                     {QLatin1String(Feed::Reply::Sha256),
                      feed.value(QLatin1String(Feed::Reply::Sha256)).toString().toLower()}});
            },
            Qt::QueuedConnection);
    });
}

void UpdateHandler::update(const QJsonObject& message)
{
    Build build;
    build.url = message.value(QLatin1String(Update::BuildUrl)).toString();
    build.size = static_cast<qint64>(message.value(QLatin1String(Update::Size)).toDouble());
    const QString sha256 = message.value(QLatin1String(Update::Sha256)).toString();
    build.sha256 = sha256.toLower().toLatin1();
    if (m_downloading) {
        qCInfo(lcService).noquote()
            << "Update of" << build.url << "asked while one downloads: ignored";
        return;
    }
    if (!isDownloadUrl(build.url) || build.size < 1 || !isSha256(sha256)) {
        report(0, 0,
               QStringLiteral("The update request lacks the build's address, size or SHA-256"));
        return;
    }
    m_downloading = true;
    qCInfo(lcService).noquote() << "Downloading the update" << build.url;
    m_pool.start([this, build] {
        QString package;
        const QString failure = download(build, &package);
        QMetaObject::invokeMethod(
            this,
            [this, build, failure, package] {
                m_downloading = false;
                if (!failure.isEmpty()) {
                    qCWarning(lcService).noquote() << "Update not downloaded:" << failure;
                    report(0, build.size, failure);
                    return;
                }
                qCInfo(lcService).noquote() << "Update downloaded and verified:" << package;
                report(build.size, build.size, QString(), package);
            },
            Qt::QueuedConnection);
    });
}

QString UpdateHandler::download(const Build& build, QString* package)
{
    if (!QDir().mkpath(m_folder))
        return QStringLiteral("Cannot create the folder %1").arg(m_folder);
    const QString finalPath = QDir(m_folder).filePath(packageName(build.url));
    QFile part(finalPath + QStringLiteral(".part"));
    if (!part.open(QIODevice::ReadWrite | QIODevice::Truncate))
        return QStringLiteral("Cannot write %1: %2").arg(part.fileName(), part.errorString());
    int shown = -1;
    const Web::Reply reply =
        Web::download(build.url, &part, build.size, [this, &build, &shown](qint64 done, qint64) {
            // Below 100 % until the package is checked.
            const qint64 count = qMin(done, build.size - 1);
            const int percent = static_cast<int>(count * 100 / build.size);
            if (percent != shown) {
                shown = percent;
                QMetaObject::invokeMethod(
                    this, [this, count, size = build.size] { report(count, size, QString()); },
                    Qt::QueuedConnection);
            }
            return !m_stopping;
        });
    part.flush();
    QString failure;
    if (m_stopping)
        failure = QStringLiteral("The service stopped during the download");
    else if (part.size() > build.size)
        failure = QStringLiteral("The download from %1 is larger than the %2 bytes the product "
                                 "information gives")
                      .arg(build.url)
                      .arg(build.size);
    else if (!reply.ok())
        failure =
            reply.failure(QStringLiteral("The update cannot be downloaded from %1").arg(build.url));
    else if (part.size() != build.size)
        failure = QStringLiteral("The download from %1 has %2 bytes where the product information "
                                 "gives %3")
                      .arg(build.url)
                      .arg(part.size())
                      .arg(build.size);
    else if (sha256Of(&part) != build.sha256)
        failure = QStringLiteral("The download from %1 does not match the SHA-256 the product "
                                 "information gives")
                      .arg(build.url);
    if (!failure.isEmpty()) {
        part.remove();
        return failure;
    }
    part.close();
    QFile::remove(finalPath);
    if (!part.rename(finalPath)) {
        const QString reason = part.errorString();
        part.remove();
        return QStringLiteral("Cannot name the package %1: %2").arg(finalPath, reason);
    }
    *package = finalPath;
    return QString();
}

void UpdateHandler::report(qint64 count, qint64 size, const QString& error, const QString& message)
{
    m_broadcast(Progress::Type,
                {{QLatin1String(Progress::Error), !error.isEmpty()},
                 {QLatin1String(Progress::Message), error.isEmpty() ? message : error},
                 {QLatin1String(Progress::Count), count},
                 {QLatin1String(Progress::Size), size}});
}

} // namespace Orv::Service
