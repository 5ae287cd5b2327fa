#include "service/ClientConnection.h"

#include "service/ServiceLog.h"

#include <QLocalSocket>
#include <QTimer>
#include <unistd.h>

namespace Orv::Service {

namespace {

namespace Communication = Orv::Common::Communication;

// How much is taken from the socket at a time, and how much the socket keeps
// before it stops reading: a client that sends faster than it is served is
// slowed down by the kernel instead of filling our memory.
constexpr qint64 kReadChunk = 256 * 1024;
constexpr qint64 kSocketReadBuffer = 1024 * 1024;
// Frames handled in one turn of the event loop before other clients get theirs.
constexpr int kFramesPerTurn = 32;

} // namespace

ClientConnection::ClientConnection(int descriptor, const Peer& peer, qint64 maxPendingOutput,
                                   QObject* parent)
    : QObject(parent), m_peer(peer), m_maxPendingOutput(maxPendingOutput)
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
    m_socket->setReadBufferSize(kSocketReadBuffer);
    connect(m_socket, &QLocalSocket::readyRead, this, &ClientConnection::processInput);
    connect(m_socket, &QLocalSocket::disconnected, this,
            [this] { close(QStringLiteral("the client closed it")); });
    connect(m_socket, &QLocalSocket::errorOccurred, this,
            [this](QLocalSocket::LocalSocketError error) {
                if (error == QLocalSocket::PeerClosedError)
                    close(QStringLiteral("the client closed it"));
                else
                    close(m_socket ? m_socket->errorString() : QString(), true);
            });
}

ClientConnection::~ClientConnection()
{
    if (m_socket)
        m_socket->abort();
}

void ClientConnection::sendFrame(const QByteArray& frame)
{
    if (!m_socket || m_socket->state() != QLocalSocket::ConnectedState)
        return;
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
    emit closed();
}

void ClientConnection::processInput()
{
    m_inputScheduled = false;
    int handled = 0;
    while (m_socket) {
        QJsonObject message;
        switch (m_reader.next(&message)) {
        case Communication::FrameReader::Result::NeedMore:
            if (m_socket->bytesAvailable() <= 0)
                return;
            m_reader.append(m_socket->read(kReadChunk));
            break;
        case Communication::FrameReader::Result::Frame:
            emit messageReceived(message);
            if (++handled >= kFramesPerTurn) {
                scheduleInput();
                return;
            }
            break;
        case Communication::FrameReader::Result::TooLarge:
            close(QStringLiteral("the client announced a frame larger than %1 bytes")
                      .arg(Communication::kMaxFrameSize),
                  true);
            return;
        case Communication::FrameReader::Result::Malformed:
            close(QStringLiteral("the client sent a frame that is not a JSON object"), true);
            return;
        }
    }
}

void ClientConnection::scheduleInput()
{
    if (m_inputScheduled)
        return;
    m_inputScheduled = true;
    QTimer::singleShot(0, this, &ClientConnection::processInput);
}

} // namespace Orv::Service
