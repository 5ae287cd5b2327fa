#pragma once

#include "orvCommon/Communication/Frame.h"

#include <QJsonObject>
#include <QObject>
#include <sys/types.h>

class QLocalSocket;

namespace Orv::Service {

// One client of the service. It cuts the incoming byte stream into frames and
// writes answers without ever blocking: output the client does not read piles
// up in memory only up to a limit, beyond which the client is dropped. A
// broken frame closes this connection only.
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

    // Takes over a connected socket descriptor (closing it if it cannot).
    ClientConnection(int descriptor, const Peer& peer, qint64 maxPendingOutput,
                     QObject* parent = nullptr);
    ~ClientConnection() override;

    bool isOpen() const { return m_socket != nullptr; }
    const Peer& peer() const { return m_peer; }
    bool isSubscribed() const { return m_subscribed; }
    void setSubscribed(bool subscribed) { m_subscribed = subscribed; }

    // Queues one encoded frame; dropped silently once the connection is closed.
    void sendFrame(const QByteArray& frame);
    // Ends the connection; closed() follows at once. Calling it again does nothing.
    void close(const QString& reason, bool isFault = false);

signals:
    void messageReceived(const QJsonObject& message);
    void closed();

private:
    void processInput();
    void scheduleInput();

    Peer m_peer;
    qint64 m_maxPendingOutput = 0;
    QLocalSocket* m_socket = nullptr;
    Orv::Common::Communication::FrameReader m_reader;
    bool m_subscribed = false;
    bool m_inputScheduled = false;
};

} // namespace Orv::Service
