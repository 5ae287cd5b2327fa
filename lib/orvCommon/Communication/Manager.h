#pragma once

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QUuid>

namespace Orv::Common::Notification {
class Center;
}

namespace Orv::Common::Communication {

class Connection;
class ICommand;
class INotification;
namespace V2 {
class Command;
}

// The process-wide entry to the service. It creates commands by name or by
// identifier (a name or identifier it does not know gives null), owns the one
// connection they share, and the notification centre.
class Manager : public QObject
{
    Q_OBJECT
public:
    // Null when the library cannot run: before a QCoreApplication exists, or
    // after it has gone.
    static QPointer<Manager> instance();
    // The connection if one was ever made; never creates anything.
    static Connection* connectionIfAny();

    // Names the kind of client (6 is the command line) and opens a session.
    void initConnectionAgent(int kind, const QJsonObject& agentInfo);

    ICommand* commandFactory(const QString& name);
    V2::Command* commandFactoryV2(const QUuid& commandId);
    INotification* notificationFactory(const QUuid& type);
    // Subscribes this client to the service's notifications on first use.
    QPointer<Notification::Center> notificationCenter();

    // The socket to talk to; AppPath's service socket unless set.
    void setServerName(const QString& serverName);
    QString serverName() const { return m_serverName; }
    void setDefaultTimeout(int milliseconds) { m_defaultTimeoutMs = milliseconds; }
    int defaultTimeout() const { return m_defaultTimeoutMs; }
    QString sessionId() const { return m_sessionId; }

    Connection* connection();

private:
    explicit Manager(QObject* parent);
    QString m_serverName;
    QString m_sessionId;
    int m_agentKind = 0;
    QJsonObject m_agentInfo;
    int m_defaultTimeoutMs = 30000;
    Connection* m_connection = nullptr;
    Notification::Center* m_center = nullptr;
};

// How long a command waits before sending again when the service asks it to
// try later. One minute in production; ORV_RETRY_DELAY_MS shortens it for tests.
int retryDelayMs();

} // namespace Orv::Common::Communication
