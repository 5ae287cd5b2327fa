#pragma once

#include "orvCommon/Communication/Frame.h"

#include <QHash>
#include <QJsonDocument>
#include <QLocalSocket>
#include <QObject>
#include <QPointer>
#include <QSet>

namespace Orv::Common::Communication {

class ICommand;
namespace V2 {
class Command;
}

// The client's one connection to the service. Requests wait in an outbox
// until the socket is connected; replies are routed to their command by the
// exchange id. If the service is not there, or goes away, every waiting
// command ends with an error at once: nothing waits for an answer that cannot
// come.
class Connection : public QObject
{
    Q_OBJECT
public:
    Connection(const QString& serverName, const QString& sessionId, int connectionType,
               QObject* parent = nullptr);
    // Exchanges still waiting end with an error: their answer can no longer come.
    ~Connection() override;

    void send(ICommand* command);
    void send(V2::Command* command);
    // Sends a message that expects no answer (subscriptions, notifications).
    void post(const QJsonObject& message);
    // Stops routing answers to an exchange (its command timed out or died).
    void forget(const QString& exchangeId);
    void subscribe();

signals:
    void notificationReceived(const QJsonDocument& notification);

private:
    QString nextExchangeId();
    void enqueue(const QString& exchangeId, QObject* command, QJsonObject message);
    void ensureConnected();
    void flush();
    void onConnected();
    void onReadyRead();
    void readFrames();
    // Reads what the service wrote before it closed; true when that ended the connection.
    bool salvageLastWords();
    void onSocketError(QLocalSocket::LocalSocketError error);
    void onDisconnected();
    void dispatch(const QJsonObject& message);
    // Ends every waiting exchange with reason. Those whose request was
    // already written are marked as of unknown outcome, unless the service
    // said it read nothing.
    void failAll(const QString& reason, bool nothingRead = false);

    QString m_serverName;
    QString m_sessionId;
    int m_connectionType = 0;
    quint64 m_counter = 0;
    QLocalSocket* m_socket = nullptr;
    // A second handle on the connected socket: Qt closes its own as soon as a
    // write fails, and the service's last words may still be unread then.
    int m_lastWordsFd = -1;
    FrameReader m_reader;
    // Frames not written yet, with their exchange id (empty for a post).
    QList<QPair<QString, QByteArray>> m_outbox;
    QHash<QString, QPointer<QObject>> m_pending;
    // Exchanges whose request has been written to the socket.
    QSet<QString> m_written;
    bool m_subscribed = false;
};

} // namespace Orv::Common::Communication
