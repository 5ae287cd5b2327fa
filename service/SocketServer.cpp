#include "service/SocketServer.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "orvCommon/Communication/Notification.h"
#include "service/ClientConnection.h"
#include "service/Dispatcher.h"
#include "service/ServiceLog.h"

#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <QTimer>
#include <cerrno>
#include <cstring>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

namespace Communication = Orv::Common::Communication;
namespace Header = Communication::Commands::Format::Header;

constexpr int kAcceptsPerTurn = 64;
constexpr int kAcceptPauseMs = 100;

QString systemError(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

enum class Occupant
{
    Nothing,
    LiveServer,
    StaleSocket,
    NotASocket,
    Unknown
};

// What is at the socket path: a server that accepts connections, a socket
// left behind by one that died, or something else.
Occupant probe(const sockaddr_un& address, QString* problem)
{
    struct stat status
    {
    };
    if (::lstat(address.sun_path, &status) != 0) {
        if (errno == ENOENT)
            return Occupant::Nothing;
        *problem = systemError(errno);
        return Occupant::Unknown;
    }
    if (!S_ISSOCK(status.st_mode))
        return Occupant::NotASocket;
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *problem = systemError(errno);
        return Occupant::Unknown;
    }
    const int result = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int error = errno;
    ::close(fd);
    // A full backlog (EAGAIN) still means someone listens there.
    if (result == 0 || error == EAGAIN)
        return Occupant::LiveServer;
    if (error == ECONNREFUSED)
        return Occupant::StaleSocket;
    *problem = systemError(error);
    return Occupant::Unknown;
}

} // namespace

SocketServer::SocketServer(const Dispatcher& dispatcher, QObject* parent)
    : QObject(parent), m_dispatcher(dispatcher), m_ownUid(::getuid())
{
}

SocketServer::~SocketServer()
{
    close();
}

bool SocketServer::listen(const QString& path, QString* error)
{
    close();
    const QByteArray encoded = QFile::encodeName(path);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (encoded.isEmpty() || static_cast<size_t>(encoded.size()) >= sizeof(address.sun_path)) {
        *error = QStringLiteral("the socket path %1 is empty or too long").arg(path);
        return false;
    }
    std::memcpy(address.sun_path, encoded.constData(), static_cast<size_t>(encoded.size()));

    QString problem;
    switch (probe(address, &problem)) {
    case Occupant::Nothing:
        break;
    case Occupant::LiveServer:
        *error = QStringLiteral("another orvd is already running and answering on %1").arg(path);
        return false;
    case Occupant::NotASocket:
        *error = QStringLiteral("%1 exists and is not a socket").arg(path);
        return false;
    case Occupant::Unknown:
        *error = QStringLiteral("cannot check the socket %1: %2").arg(path, problem);
        return false;
    case Occupant::StaleSocket:
        qCInfo(lcServer).noquote() << "Replacing the stale socket" << path;
        if (::unlink(address.sun_path) != 0 && errno != ENOENT) {
            *error = QStringLiteral("cannot remove the stale socket %1: %2")
                         .arg(path, systemError(errno));
            return false;
        }
        break;
    }

    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        *error = QStringLiteral("cannot create a socket: %1").arg(systemError(errno));
        return false;
    }
    // The run folder is owner-only, so nobody can reach the socket in the
    // moment between bind() and chmod().
    struct stat status
    {
    };
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
        ::chmod(address.sun_path, 0600) != 0 || ::listen(fd, SOMAXCONN) != 0 ||
        ::lstat(address.sun_path, &status) != 0) {
        *error = QStringLiteral("cannot listen on %1: %2").arg(path, systemError(errno));
        ::close(fd);
        return false;
    }
    m_fd = fd;
    m_inode = status.st_ino;
    m_path = path;
    m_notifier = new QSocketNotifier(fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &SocketServer::onAcceptable);
    qCInfo(lcServer).noquote() << "Listening on" << path;
    return true;
}

void SocketServer::close()
{
    if (m_fd >= 0) {
        delete m_notifier;
        m_notifier = nullptr;
        ::close(m_fd);
        m_fd = -1;
        // Remove the socket only while it is still ours.
        const QByteArray encoded = QFile::encodeName(m_path);
        struct stat status
        {
        };
        if (::lstat(encoded.constData(), &status) == 0 && status.st_ino == m_inode)
            ::unlink(encoded.constData());
    }
    const QList<ClientConnection*> connections = m_connections.values();
    m_connections.clear();
    for (ClientConnection* connection : connections) {
        connection->disconnect(this);
        connection->close(QStringLiteral("the service is stopping"));
        // Later: close() may run inside one of this connection's own signals.
        connection->deleteLater();
    }
}

void SocketServer::onAcceptable()
{
    for (int i = 0; i < kAcceptsPerTurn && m_fd >= 0; ++i) {
        const int fd = ::accept4(m_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd >= 0) {
            adopt(fd);
            continue;
        }
        if (errno == EINTR || errno == ECONNABORTED)
            continue;
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            // Out of descriptors or memory: waiting clients stay in the
            // backlog until some connection ends.
            qCWarning(lcServer).noquote() << "Cannot accept a connection:" << systemError(errno);
            pauseAccepting();
        }
        return;
    }
}

void SocketServer::pauseAccepting()
{
    if (!m_notifier)
        return;
    m_notifier->setEnabled(false);
    QTimer::singleShot(kAcceptPauseMs, this, [this] {
        if (m_notifier)
            m_notifier->setEnabled(true);
    });
}

void SocketServer::adopt(int descriptor)
{
    ucred credentials{};
    socklen_t length = sizeof(credentials);
    if (::getsockopt(descriptor, SOL_SOCKET, SO_PEERCRED, &credentials, &length) != 0) {
        qCWarning(lcServer).noquote()
            << "Refusing a connection whose peer is unknown:" << systemError(errno);
        ::close(descriptor);
        return;
    }
    if (credentials.uid != m_ownUid && credentials.uid != 0) {
        qCWarning(lcServer).noquote()
            << QStringLiteral("Refusing a connection from uid %1 (pid %2)")
                   .arg(credentials.uid)
                   .arg(credentials.pid);
        ::close(descriptor);
        return;
    }
    const ClientConnection::Peer peer{++m_lastConnectionId, credentials.uid, credentials.pid};
    auto* connection = new ClientConnection(descriptor, peer, m_maxPendingOutput, this);
    if (!connection->isOpen()) {
        delete connection;
        return;
    }
    qCDebug(lcServer).noquote() << "Connection" << peer.id << "from pid" << peer.pid;
    connect(connection, &ClientConnection::messageReceived, this,
            [this, connection](const QJsonObject& message) { onMessage(connection, message); });
    connect(connection, &ClientConnection::closed, this, [this, connection] {
        m_connections.remove(connection->peer().id);
        connection->deleteLater();
    });
    m_connections.insert(peer.id, connection);
}

void SocketServer::onMessage(ClientConnection* connection, const QJsonObject& message)
{
    if (message.value(QLatin1String(Header::Type::Key)).toString() ==
        QLatin1String(Header::Type::Subscribe)) {
        qCDebug(lcServer).noquote() << "Connection" << connection->peer().id << "subscribed";
        connection->setSubscribed(true);
        return;
    }
    RequestContext context;
    context.connectionId = connection->peer().id;
    context.peerUid = connection->peer().uid;
    context.peerPid = connection->peer().pid;
    const QPointer<ClientConnection> target(connection);
    m_dispatcher.dispatch(message, context, [target](const QByteArray& frame) {
        if (target)
            target->sendFrame(frame);
    });
}

void SocketServer::broadcast(const QUuid& type, const QJsonObject& message)
{
    const QByteArray frame = Communication::encodeFrame(
        {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Notification)},
         {QLatin1String(Header::Data), Communication::INotification::document(type, message)}});
    // A copy: a client that cannot take more is dropped while we iterate.
    const QList<ClientConnection*> connections = m_connections.values();
    for (ClientConnection* connection : connections)
        if (connection->isSubscribed())
            connection->sendFrame(frame);
}

} // namespace Orv::Service
