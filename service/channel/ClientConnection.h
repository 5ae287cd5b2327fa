#pragma once

#include "orvCommon/Communication/Frame.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <memory>
#include <sys/types.h>

class QLocalSocket;

namespace Orv::Service {

class InputBudget;

// One client of the service. It cuts the incoming byte stream into frames and
// writes answers without ever blocking: output the client does not read piles
// up in memory only up to a limit, beyond which the client is dropped, and a
// large incoming frame is read only once the shared input budget holds room
// for all of it. A broken frame ends this connection only, after the requests
// that came before it have been answered.
class ClientConnection : public QObject
{
    Q_OBJECT
public:
    struct Peer
    {
        quint64 id = 0;
        uid_t uid = 0;
        pid_t pid = 0;
    };

    // How long a connection may leave a frame unfinished or an answer unread,
    // and stay silent with nothing in flight; 0 for no limit.
    struct Timeouts
    {
        qint64 frameMs = 0;
        qint64 idleMs = 0;
    };

    // Takes over a connected socket descriptor (closing it if it cannot).
    // Without a budget, incoming frames are not limited beyond their size.
    ClientConnection(int descriptor, const Peer& peer, qint64 maxPendingOutput,
                     InputBudget* budget = nullptr, QObject* parent = nullptr);
    ~ClientConnection() override;

    bool isOpen() const { return m_socket != nullptr; }
    const Peer& peer() const { return m_peer; }
    bool isSubscribed() const { return m_subscribed; }
    void setSubscribed(bool subscribed) { m_subscribed = subscribed; }

    // Marks one request as taken from this connection; it is in flight until
    // the last copy of the returned token is gone. Tokens must be released on
    // the connection's thread.
    std::shared_ptr<void> beginRequest();
    int requestsInFlight() const { return m_requests; }

    // Queues one encoded frame; dropped silently once the connection is closed.
    void sendFrame(const QByteArray& frame);
    // Ends the connection; closed() follows at once. Calling it again does nothing.
    void close(const QString& reason, bool isFault = false);

    // Why the connection should be dropped at monotonic time nowMs, or an
    // empty text while it is within its limits.
    QString overdue(qint64 nowMs, const Timeouts& timeouts) const;

    // The monotonic clock of overdue(), in milliseconds.
    static qint64 monotonicMs();

signals:
    void messageReceived(const QJsonObject& message);
    void closed();

private:
    void processInput();
    void scheduleInput();
    bool reserveForFrame();
    void noteIncomplete();
    void endInput(const QString& reason);
    void endRequest();
    void finishIfAnswered();

    Peer m_peer;
    qint64 m_maxPendingOutput = 0;
    QPointer<InputBudget> m_budget;
    QLocalSocket* m_socket = nullptr;
    Orv::Common::Communication::FrameReader m_reader;
    qint64 m_reserved = 0;
    int m_requests = 0;
    qint64 m_lastActivityMs = 0;
    qint64 m_lastWriteMs = 0;
    qint64 m_incompleteSinceMs = -1;
    bool m_subscribed = false;
    bool m_inputScheduled = false;
    bool m_waitingForBudget = false;
    bool m_inputEnded = false;
};

} // namespace Orv::Service
