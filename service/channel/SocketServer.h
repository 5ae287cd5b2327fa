#pragma once

#include "service/channel/ClientConnection.h"
#include "service/channel/InputBudget.h"

#include <QHash>
#include <QJsonObject>
#include <QObject>
#include <QTimer>
#include <QUuid>
#include <optional>
#include <sys/types.h>

class QSocketNotifier;

namespace Orv::Service {

class Dispatcher;

// The service's end of the channel: a Unix socket only its owner may open,
// serving many clients at once on the event loop. Peers whose uid is neither
// the service's own nor root are turned away.
//
// What hostile or broken clients can take is bounded: the requests they have
// not finished sending share one input budget; a client that leaves a request
// unfinished or an answer unread longer than the frame timeout is dropped, and
// so is one idle (nothing in flight, not subscribed) beyond the idle timeout,
// both read from the settings store. When descriptors run short, clients that
// cannot be served are told so and closed at once instead of waiting in the
// backlog until they time out.
class SocketServer : public QObject
{
    Q_OBJECT
public:
    // A client that leaves this much output unread is dropped.
    static constexpr qint64 kDefaultMaxPendingOutput = 64 * 1024 * 1024;
    // What all clients together may buffer of frames they are still sending.
    static constexpr qint64 kDefaultInputBudget = 3 * 16 * 1024 * 1024;
    // Used when the settings store holds no usable value.
    static constexpr int kDefaultFrameTimeoutS = 30;
    static constexpr int kDefaultIdleTimeoutS = 600;
    // What a client that cannot be served reads before its connection closes.
    static const char kBusyMessage[];

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
    void setInputBudget(qint64 bytes) { m_budget.setCapacity(bytes); }
    const InputBudget& inputBudget() const { return m_budget; }
    // Fixed time-outs instead of the settings store's.
    void setTimeouts(const ClientConnection::Timeouts& timeouts) { m_fixedTimeouts = timeouts; }

    // Pushes a notification to every client that subscribed.
    void broadcast(const QUuid& type, const QJsonObject& message);

private:
    void onAcceptable();
    void adopt(int descriptor);
    void turnAway(int descriptor);
    void turnAwayWaiting();
    void reportTurnedAway();
    void pauseAccepting();
    void onMessage(ClientConnection* connection, const QJsonObject& message);
    ClientConnection::Timeouts timeouts() const;
    void sweep();

    const Dispatcher& m_dispatcher;
    QString m_path;
    int m_fd = -1;
    ino_t m_inode = 0;
    QSocketNotifier* m_notifier = nullptr;
    QHash<quint64, ClientConnection*> m_connections;
    quint64 m_lastConnectionId = 0;
    qint64 m_maxPendingOutput = kDefaultMaxPendingOutput;
    InputBudget m_budget{kDefaultInputBudget};
    std::optional<ClientConnection::Timeouts> m_fixedTimeouts;
    QTimer m_sweep;
    // Held open so that one descriptor is free to accept and turn away a
    // client when the process has run out of them.
    int m_spareFd = -1;
    int m_turnedAway = 0;
    QString m_turnAwayCause;
    QTimer m_turnAwayReport;
    uid_t m_ownUid = 0;
};

} // namespace Orv::Service
