#pragma once

#include <QJsonDocument>
#include <QJsonObject>
#include <QObject>
#include <QUuid>

namespace Orv::Common::Notification {

// Delivers the notifications the service pushes to this client. Each document
// is an object {"notification_type": UUID, "message": {...}}.
class Center : public QObject
{
    Q_OBJECT
public:
    using QObject::QObject;

signals:
    void notification(const QJsonDocument& document);
};

} // namespace Orv::Common::Notification

namespace Orv::Common::Communication {

// A one-way message to the service, such as a request to fetch an update.
class INotification : public QObject
{
    Q_OBJECT
public:
    explicit INotification(const QUuid& type, QObject* parent = nullptr)
        : QObject(parent), m_type(type)
    {
    }

    QUuid type() const { return m_type; }
    void setMessage(const QJsonObject& message) { m_message = message; }
    QJsonObject message() const { return m_message; }
    // Queues the notification; returns false when there is no manager.
    bool send();

    // The document form carried in a frame's "data".
    static QJsonObject document(const QUuid& type, const QJsonObject& message);

private:
    QUuid m_type;
    QJsonObject m_message;
};

} // namespace Orv::Common::Communication
