#include "service/channel/ClientConnection.h"

#include "service/ServiceLog.h"
#include "service/channel/InputBudget.h"

#include <QLocalSocket>
#include <QTimer>
#include <chrono>
#include <unistd.h>

namespace Orv::Service {

namespace {

namespace Communication = Orv::Common::Communication;

// How much is taken from the socket at a time, and how much the socket keeps
// before it stops reading: a client that sends faster than it is served is
// slowed down by the kernel instead of filling our memory.
constexpr qint64 kReadChunk = 64 * 1024;
// Frames handled in one turn of the event loop before other clients get theirs.
constexpr int kFramesPerTurn = 32;

QString seconds(qint64 milliseconds)
{
    return QString::number(static_cast<double>(milliseconds) / 1000.0, 'g', 3);
}

} // namespace

qint64 ClientConnection::monotonicMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

ClientConnection::ClientConnection(int descriptor, const Peer& peer, qint64 maxPendingOutput,
                                   InputBudget* budget, QObject* parent)
    : QObject(parent), m_peer(peer), m_maxPendingOutput(maxPendingOutput), m_budget(budget),
      m_lastActivityMs(monotonicMs())
{
    auto* socket = new QLocalSocket(this);
    if (!socket->setSocketDescriptor(descriptor, QLocalSocket::ConnectedState,
                                     QIODevice::ReadWrite)) {
        qCWarning(lcServer).noquote()
            << "Cannot take over connection" << m_peer.id << "-" << socket->errorString();
        ::close(descriptor);
        delete socket;
        return;
    }
    m_socket = socket;
    m_socket->setReadBufferSize(kReadChunk);
    connect(m_socket, &QLocalSocket::readyRead, this, &ClientConnection::processInput);
    connect(m_socket, &QLocalSocket::bytesWritten, this,
            [this] { m_lastWriteMs = m_lastActivityMs = monotonicMs(); });
    connect(m_socket, &QLocalSocket::disconnected, this, [this] {
        close(m_inputEnded ? QStringLiteral("closed after its broken frame")
                           : QStringLiteral("the client closed it"));
    });
    connect(m_socket, &QLocalSocket::errorOccurred, this,
            [this](QLocalSocket::LocalSocketError error) {
                if (error == QLocalSocket::PeerClosedError)
                    close(QStringLiteral("the client closed it"));
                else
                    close(m_socket ? m_socket->errorString() : QString(), true);
            });
    if (m_budget)
        connect(m_budget, &InputBudget::released, this, [this] {
            if (m_waitingForBudget)
                scheduleInput();
        });
}

ClientConnection::~ClientConnection()
{
    if (m_budget)
        m_budget->change(m_reserved, 0);
    if (m_socket)
        m_socket->abort();
}

std::shared_ptr<void> ClientConnection::beginRequest()
{
    ++m_requests;
    const QPointer<ClientConnection> self(this);
    return std::shared_ptr<void>(nullptr, [self](void*) {
        if (self)
            self->endRequest();
    });
}

void ClientConnection::endRequest()
{
    --m_requests;
    m_lastActivityMs = monotonicMs();
    finishIfAnswered();
}

void ClientConnection::sendFrame(const QByteArray& frame)
{
    if (!m_socket || m_socket->state() != QLocalSocket::ConnectedState)
        return;
    if (m_socket->bytesToWrite() == 0)
        m_lastWriteMs = monotonicMs();
    m_socket->write(frame);
    const qint64 pending = m_socket->bytesToWrite();
    if (pending > m_maxPendingOutput)
        close(
            QStringLiteral("the client does not read its answers (%1 bytes waiting)").arg(pending),
            true);
}

void ClientConnection::close(const QString& reason, bool isFault)
{
    if (!m_socket)
        return;
    QLocalSocket* socket = m_socket;
    m_socket = nullptr;
    if (isFault)
        qCWarning(lcServer).noquote()
            << QStringLiteral("Closing connection %1 (pid %2) -").arg(m_peer.id).arg(m_peer.pid)
            << reason;
    else
        qCDebug(lcServer).noquote() << "Connection" << m_peer.id << "ended -" << reason;
    socket->disconnect(this);
    socket->abort();
    socket->deleteLater();
    if (m_budget)
        m_budget->change(m_reserved, 0);
    m_reserved = 0;
    m_reader = {};
    emit closed();
}

QString ClientConnection::overdue(qint64 nowMs, const Timeouts& timeouts) const
{
    if (!m_socket)
        return {};
    if (timeouts.frameMs > 0 && m_incompleteSinceMs >= 0 &&
        nowMs - m_incompleteSinceMs > timeouts.frameMs)
        return QStringLiteral("the client left a request unfinished for more than %1 s")
            .arg(seconds(timeouts.frameMs));
    if (timeouts.frameMs > 0 && m_socket->bytesToWrite() > 0 &&
        nowMs - m_lastWriteMs > timeouts.frameMs)
        return QStringLiteral("the client has not read its answers for more than %1 s")
            .arg(seconds(timeouts.frameMs));
    // A client waiting for an answer or for notifications is never idle.
    if (timeouts.idleMs > 0 && m_requests == 0 && !m_subscribed && m_incompleteSinceMs < 0 &&
        nowMs - m_lastActivityMs > timeouts.idleMs)
        return QStringLiteral("the client stayed idle for more than %1 s")
            .arg(seconds(timeouts.idleMs));
    return {};
}

void ClientConnection::processInput()
{
    m_inputScheduled = false;
    int handled = 0;
    while (m_socket && !m_inputEnded) {
        QJsonObject message;
        switch (m_reader.next(&message)) {
        case Communication::FrameReader::Result::NeedMore: {
            if (!reserveForFrame() || m_socket->bytesAvailable() <= 0) {
                noteIncomplete();
                return;
            }
            qint64 wanted = kReadChunk;
            // Of a frame announced, nothing beyond it: what follows is not
            // covered by its reservation.
            if (m_reader.frameSize() > 0)
                wanted = qMin<qint64>(wanted, m_reader.frameSize() - m_reader.pending());
            m_reader.append(m_socket->read(wanted));
            m_lastActivityMs = monotonicMs();
            break;
        }
        case Communication::FrameReader::Result::Frame:
            m_incompleteSinceMs = -1;
            emit messageReceived(message);
            if (++handled >= kFramesPerTurn) {
                noteIncomplete();
                scheduleInput();
                return;
            }
            break;
        case Communication::FrameReader::Result::TooLarge:
            endInput(QStringLiteral("the client announced a frame larger than %1 bytes")
                         .arg(Communication::kMaxFrameSize));
            return;
        case Communication::FrameReader::Result::Malformed:
            endInput(QStringLiteral("the client sent a frame that is not a JSON object"));
            return;
        }
    }
}

bool ClientConnection::reserveForFrame()
{
    if (!m_budget)
        return true;
    const qint64 holding = qMax<qint64>(m_reader.pending(), m_reader.frameSize());
    const qint64 wanted = qMax<qint64>(0, holding - InputBudget::kAllowance);
    m_waitingForBudget = !m_budget->change(m_reserved, wanted);
    if (!m_waitingForBudget)
        m_reserved = wanted;
    return !m_waitingForBudget;
}

void ClientConnection::noteIncomplete()
{
    const bool incomplete = m_reader.pending() > 0 || (m_socket && m_socket->bytesAvailable() > 0);
    if (!incomplete)
        m_incompleteSinceMs = -1;
    else if (m_incompleteSinceMs < 0)
        m_incompleteSinceMs = monotonicMs();
}

void ClientConnection::endInput(const QString& reason)
{
    m_inputEnded = true;
    m_incompleteSinceMs = -1;
    m_waitingForBudget = false;
    if (m_budget)
        m_budget->change(m_reserved, 0);
    m_reserved = 0;
    m_reader = {};
    qCWarning(lcServer).noquote()
        << QStringLiteral("Closing connection %1 (pid %2) -").arg(m_peer.id).arg(m_peer.pid)
        << reason;
    finishIfAnswered();
}

void ClientConnection::finishIfAnswered()
{
    // Written answers still go out before the socket closes.
    if (m_inputEnded && m_requests == 0 && m_socket)
        m_socket->disconnectFromServer();
}

void ClientConnection::scheduleInput()
{
    if (m_inputScheduled)
        return;
    m_inputScheduled = true;
    QTimer::singleShot(0, this, &ClientConnection::processInput);
}

} // namespace Orv::Service
