#include "orvCommon/Communication/Notification.h"

#include "orvCommon/Communication/Connection.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Manager.h"

namespace Orv::Common::Communication {

namespace Header = Commands::Format::Header;

QJsonObject INotification::document(const QUuid& type, const QJsonObject& message)
{
    return {{QLatin1String(Header::NotificationType), type.toString()},
            {QLatin1String(Header::NotificationMessage), message}};
}

bool INotification::send()
{
    QPointer<Manager> manager = Manager::instance();
    if (!manager)
        return false;
    manager->connection()->post(
        {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Notification)},
         {QLatin1String(Header::Data), document(m_type, m_message)}});
    return true;
}

} // namespace Orv::Common::Communication
