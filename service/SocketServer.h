#pragma once

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QUuid>
#include <sys/types.h>

class QSocketNotifier;

namespace Orv::Service {

class ClientConnection;
class Dispatcher;

// The service's end of the channel: a Unix socket only its owner may open,
// serving any number of clients at once on the event loop. Peers whose uid is
// neither the service's own nor root are turned away.
class SocketServer : public QObject
{
    Q_OBJECT
public:
    // A client that leaves this much output unread is dropped.
    static constexpr qint64 kDefaultMaxPendingOutput = 64 * 1024 * 1024;

    explicit SocketServer(const Dispatcher& dispatcher, QObject* parent = nullptr);
    ~SocketServer() override;

    // Creates the socket (mode 0600). Fails when a live server already answers
    // there or the path holds something that is not a socket; a socket nobody
    // answers on is left over from a crash and is replaced.
    bool listen(const QString& path, QString* error);
    // Stops listening, removes the socket file and drops every client.
    void close();

    bool isListening() const { return m_fd >= 0; }
    QString path() const { return m_path; }
    int connectionCount() const { return m_connections.size(); }
    void setMaxPendingOutput(qint64 bytes) { m_maxPendingOutput = bytes; }

    // Pushes a notification to every client that subscribed.
    void broadcast(const QUuid& type, const QJsonObject& message);

private:
    void onAcceptable();
    void adopt(int descriptor);
    void pauseAccepting();
    void onMessage(ClientConnection* connection, const QJsonObject& message);

    const Dispatcher& m_dispatcher;
    QString m_path;
    int m_fd = -1;
    ino_t m_inode = 0;
    QSocketNotifier* m_notifier = nullptr;
    QHash<quint64, ClientConnection*> m_connections;
    quint64 m_lastConnectionId = 0;
    qint64 m_maxPendingOutput = kDefaultMaxPendingOutput;
    uid_t m_ownUid = 0;
};

} // namespace Orv::Service
