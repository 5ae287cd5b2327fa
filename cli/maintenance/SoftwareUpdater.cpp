#include "SoftwareUpdater.h"

#include "CommandChannel.h"
#include "kelCore/Version.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Notification.h"
#include "orvCommon/Communication/NotificationTypes.h"

#include <QJsonObject>
#include <QVersionNumber>

namespace Orv::CLI {

namespace {

namespace Feed = Orv::Common::Communication::Commands::Format::System::ProductInformation;
namespace Header = Orv::Common::Communication::Commands::Format::Header;
namespace Update = Orv::Common::Communication::Notification::Format::System::Update;
namespace Progress = Orv::Common::Communication::Notification::Format::System::UpdateProgress;

// The service reports a stalled transfer after a minute; twice that without a
// word means it is gone.
constexpr int SilenceMs = 120000;

} // namespace

SoftwareUpdater::SoftwareUpdater(QObject* parent) : QObject(parent)
{
    m_silence.setSingleShot(true);
    m_silence.setInterval(SilenceMs);
    connect(&m_silence, &QTimer::timeout, this, [this] {
        fail(NotificationError, QStringLiteral("The backup service stopped reporting progress"));
        emit updateProgress();
    });
}

void SoftwareUpdater::fail(int code, const QString& message)
{
    m_error = code;
    m_errorString = message;
}

int SoftwareUpdater::startCheckNewVersion()
{
    try {
        CommandChannel::sendNamed(QLatin1String(Feed::Name), {}, this,
                                  &SoftwareUpdater::onGetProductInformationResult);
    } catch (const QString&) {
        m_errorString = QStringLiteral("Product information does not available.");
        return 0;
    }
    return 1;
}

void SoftwareUpdater::onGetProductInformationResult()
{
    auto* command = qobject_cast<CommandChannel::ICommand*>(sender());
    command->deleteLater();
    try {
        const QJsonObject data = CommandChannel::namedReplyData(command);
        m_latestVersion = data.value(QLatin1String(Feed::Reply::Version)).toString();
        m_buildUrl = data.value(QLatin1String(Feed::Reply::Url)).toString();
        m_buildSize = static_cast<qint64>(data.value(QLatin1String(Feed::Reply::Size)).toDouble());
        m_buildSha256 = data.value(QLatin1String(Feed::Reply::Sha256)).toString();
    } catch (const QString& message) {
        fail(CheckError, message);
    }
    emit checkFinished();
}

bool SoftwareUpdater::isNewVersionAvailable() const
{
    return QVersionNumber::fromString(m_latestVersion) > Kel::Core::Version::number();
}

int SoftwareUpdater::startDownload()
{
    using Orv::Common::Communication::Manager;
    QPointer<Manager> manager = Manager::instance();
    QPointer<Orv::Common::Notification::Center> center =
        manager ? manager->notificationCenter() : nullptr;
    if (!center) {
        m_errorString = QStringLiteral("Notification center does not available");
        return 0;
    }
    connect(center, &Orv::Common::Notification::Center::notification, this,
            &SoftwareUpdater::onNotification);
    QScopedPointer<Orv::Common::Communication::INotification, QScopedPointerDeleteLater>
        notification(manager->notificationFactory(Update::Type));
    if (!notification) {
        m_errorString = QStringLiteral("Error occured. Can not create update notification");
        return 0;
    }
    notification->setMessage({{QLatin1String(Update::BuildUrl), m_buildUrl},
                              {QLatin1String(Update::Size), m_buildSize},
                              {QLatin1String(Update::Sha256), m_buildSha256}});
    if (!notification->send()) {
        m_errorString = QStringLiteral("Error occured. Can not create update notification");
        return 0;
    }
    m_silence.start();
    return 1;
}

void SoftwareUpdater::onNotification(const QJsonDocument& document)
{
    if (!document.isObject()) {
        fail(NotificationError, QStringLiteral("Can not create update notification"));
        emit updateProgress();
        return;
    }
    const QJsonObject data = document.object();
    if (QUuid(data.value(QLatin1String(Header::NotificationType)).toString()) != Progress::Type)
        return;
    m_silence.start();
    const QJsonObject message = data.value(QLatin1String(Header::NotificationMessage)).toObject();
    if (message.value(QLatin1String(Progress::Error)).toBool()) {
        fail(NotificationError, message.value(QLatin1String(Progress::Message)).toString());
    } else {
        const double count = message.value(QLatin1String(Progress::Count)).toDouble();
        const double size = message.value(QLatin1String(Progress::Size)).toDouble();
        m_progress = size > 0 ? static_cast<int>(count / size * 100) : 0;
    }
    if (m_error != NoError || m_progress > 99)
        m_silence.stop();
    emit updateProgress();
}

} // namespace Orv::CLI
