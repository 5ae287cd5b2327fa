#include "service/channel/SocketServer.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "orvCommon/Communication/Notification.h"
#include "orvCommon/DefaultSettings.h"
#include "service/ServiceLog.h"
#include "service/channel/Dispatcher.h"

#include <QFile>
#include <QPointer>
#include <QSocketNotifier>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <utility>

namespace Orv::Service {

namespace {

namespace Communication = Orv::Common::Communication;
namespace Header = Communication::Commands::Format::Header;

constexpr int kAcceptsPerTurn = 64;
constexpr int kAcceptPauseMs = 100;
// Clients turned away are counted and reported at most this often.
constexpr int kTurnAwayReportMs = 10000;
// The longest pause between two looks for overdue clients.
constexpr int kSweepMs = 1000;

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

// Raises the soft limit on open descriptors to the hard one, once per
// process: every client costs one.
void raiseDescriptorLimit()
{
    static bool done = false;
    if (std::exchange(done, true))
        return;
    rlimit current{};
    if (::getrlimit(RLIMIT_NOFILE, &current) != 0 || current.rlim_cur >= current.rlim_max)
        return;
    const rlim_t before = current.rlim_cur;
    current.rlim_cur = current.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &current) != 0)
        qCWarning(lcServer).noquote()
            << "Cannot raise the descriptor limit above" << before << "-" << systemError(errno);
    else
        qCInfo(lcServer).noquote()
            << "Descriptor limit raised from" << before << "to" << current.rlim_cur;
}

// Descriptors are numbered from the lowest free one, so a new one at or
// above this number means few are left. A quarter of the limit (at most 256)
// stays for files, the database and the storage connections of the clients
// being served.
int descriptorCeiling()
{
    rlimit current{};
    if (::getrlimit(RLIMIT_NOFILE, &current) != 0 || current.rlim_cur == RLIM_INFINITY)
        return std::numeric_limits<int>::max();
    const rlim_t kept = std::min<rlim_t>(256, current.rlim_cur / 4);
    return static_cast<int>(
        std::min<rlim_t>(current.rlim_cur - kept, std::numeric_limits<int>::max()));
}

int openSpareDescriptor()
{
    return ::open("/dev/null", O_RDONLY | O_CLOEXEC);
}

qint64 secondsSetting(const QString& text, int fallback)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok);
    return (ok && value >= 0 ? value : fallback) * 1000;
}

} // namespace

const char SocketServer::kBusyMessage[] =
    "The backup service cannot take more connections now; try again in a moment";

SocketServer::SocketServer(const Dispatcher& dispatcher, QObject* parent)
    : QObject(parent), m_dispatcher(dispatcher), m_ownUid(::getuid())
{
    connect(&m_sweep, &QTimer::timeout, this, &SocketServer::sweep);
    m_turnAwayReport.setSingleShot(true);
    connect(&m_turnAwayReport, &QTimer::timeout, this, &SocketServer::reportTurnedAway);
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
    raiseDescriptorLimit();
    m_spareFd = openSpareDescriptor();
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
    if (m_spareFd >= 0) {
        ::close(m_spareFd);
        m_spareFd = -1;
    }
    if (m_turnAwayReport.isActive()) {
        m_turnAwayReport.stop();
        reportTurnedAway();
    }
    m_sweep.stop();
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
            if (fd >= descriptorCeiling()) {
                m_turnAwayCause = QStringLiteral("few descriptors are left (%1 clients connected)")
                                      .arg(m_connections.size());
                turnAway(fd);
            } else {
                adopt(fd);
            }
            continue;
        }
        const int error = errno;
        if (error == EINTR || error == ECONNABORTED)
            continue;
        if (error == EAGAIN || error == EWOULDBLOCK)
            return;
        if (error == EMFILE || error == ENFILE) {
            m_turnAwayCause = systemError(error);
            turnAwayWaiting();
        } else {
            qCWarning(lcServer).noquote() << "Cannot accept a connection:" << systemError(error);
        }
        // Out of descriptors or memory: look again after a short pause
        // rather than at once, when nothing will have changed.
        pauseAccepting();
        return;
    }
}

void SocketServer::turnAway(int descriptor)
{
    static const QByteArray refusal = Communication::encodeFrame(
        {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Reply)},
         {QLatin1String(Header::Status::Key), QLatin1String(Header::Status::Value::Error)},
         {QLatin1String(Header::Status::ErrorString), QLatin1String(kBusyMessage)}});
    // The frame fits in any socket buffer; if it does not go, closing still
    // ends the client's wait.
    (void)::send(descriptor, refusal.constData(), static_cast<size_t>(refusal.size()),
                 MSG_DONTWAIT | MSG_NOSIGNAL);
    ::close(descriptor);
    if (m_turnedAway++ == 0) {
        qCWarning(lcServer).noquote()
            << "Turning clients away -" << m_turnAwayCause << "(reported again at most every"
            << kTurnAwayReportMs / 1000 << "s)";
        m_turnAwayReport.start(kTurnAwayReportMs);
    }
}

void SocketServer::turnAwayWaiting()
{
    if (m_spareFd < 0) {
        m_spareFd = openSpareDescriptor();
        return;
    }
    ::close(m_spareFd);
    m_spareFd = -1;
    for (int i = 0; i < kAcceptsPerTurn && m_fd >= 0; ++i) {
        const int fd = ::accept4(m_fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
        if (fd < 0)
            break;
        turnAway(fd);
    }
    m_spareFd = openSpareDescriptor();
}

void SocketServer::reportTurnedAway()
{
    // The first one was reported when it happened.
    if (m_turnedAway > 1)
        qCWarning(lcServer).noquote()
            << QStringLiteral("Turned away %1 more client(s) in the last %2 s -")
                   .arg(m_turnedAway - 1)
                   .arg(kTurnAwayReportMs / 1000)
            << m_turnAwayCause;
    m_turnedAway = 0;
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
    auto* connection = new ClientConnection(descriptor, peer, m_maxPendingOutput, &m_budget, this);
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
    if (!m_sweep.isActive())
        sweep();
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
    // The request is in flight for as long as its answer can still come.
    const std::shared_ptr<void> inFlight = connection->beginRequest();
    m_dispatcher.dispatch(message, context, [target, inFlight](const QByteArray& frame) {
        if (target)
            target->sendFrame(frame);
    });
}

ClientConnection::Timeouts SocketServer::timeouts() const
{
    if (m_fixedTimeouts)
        return *m_fixedTimeouts;
    const DefaultSettings* store = DefaultSettings::instance();
    return {secondsSetting(store->getClientFrameTimeout(), kDefaultFrameTimeoutS),
            secondsSetting(store->getClientIdleTimeout(), kDefaultIdleTimeoutS)};
}

void SocketServer::sweep()
{
    const ClientConnection::Timeouts limits = timeouts();
    const qint64 now = ClientConnection::monotonicMs();
    // A copy: closing a connection removes it from the table.
    const QList<ClientConnection*> connections = m_connections.values();
    for (ClientConnection* connection : connections) {
        const QString reason = connection->overdue(now, limits);
        if (!reason.isEmpty())
            connection->close(reason, true);
    }
    if (m_connections.isEmpty()) {
        m_sweep.stop();
        return;
    }
    // Often enough that a limit is enforced within a quarter of itself.
    qint64 interval = kSweepMs;
    for (const qint64 limit : {limits.frameMs, limits.idleMs})
        if (limit > 0)
            interval = std::min(interval, std::max<qint64>(50, limit / 4));
    m_sweep.start(static_cast<int>(interval));
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
