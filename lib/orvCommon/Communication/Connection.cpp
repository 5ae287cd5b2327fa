#include "orvCommon/Communication/Connection.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/V2Command.h"

#include <QLoggingCategory>
#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

Q_LOGGING_CATEGORY(lcChannel, "orv.channel")

namespace Orv::Common::Communication {

namespace Header = Commands::Format::Header;

Connection::Connection(const QString& serverName, const QString& sessionId, int connectionType,
                       QObject* parent)
    : QObject(parent), m_serverName(serverName), m_sessionId(sessionId),
      m_connectionType(connectionType)
{
}

Connection::~Connection()
{
    failAll(QStringLiteral("The connection to the backup service was closed"));
}

QString Connection::nextExchangeId()
{
    return QString::number(++m_counter);
}

void Connection::send(ICommand* command)
{
    command->m_exchangeId = nextExchangeId();
    QJsonObject message = command->request().object();
    message.insert(QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Request));
    message.insert(QLatin1String(Header::Command), command->name());
    message.insert(QLatin1String(Header::Id), command->m_exchangeId);
    message.insert(QLatin1String(Header::SessionId), m_sessionId);
    message.insert(QLatin1String(Header::ConnectionType::key), m_connectionType);
    if (!message.value(QLatin1String(Header::Params)).isObject())
        message.insert(QLatin1String(Header::Params), QJsonObject());
    enqueue(command->m_exchangeId, command, message);
}

void Connection::send(V2::Command* command)
{
    command->m_exchangeId = nextExchangeId();
    QJsonObject message;
    message.insert(QLatin1String(Header::Type::Key), QLatin1String(Header::Type::RequestV2));
    message.insert(QLatin1String(Header::CommandId), command->commandId().toString());
    message.insert(QLatin1String(Header::Id), command->m_exchangeId);
    message.insert(QLatin1String(Header::SessionId), m_sessionId);
    message.insert(QLatin1String(Header::TypedRequest),
                   command->request() ? command->request()->toJson() : QJsonObject());
    enqueue(command->m_exchangeId, command, message);
}

void Connection::post(const QJsonObject& message)
{
    m_outbox.append({QString(), encodeFrame(message)});
    ensureConnected();
    flush();
}

void Connection::subscribe()
{
    if (m_subscribed)
        return;
    m_subscribed = true;
    post({{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Subscribe)},
          {QLatin1String(Header::SessionId), m_sessionId}});
}

void Connection::forget(const QString& exchangeId)
{
    m_pending.remove(exchangeId);
    m_written.remove(exchangeId);
}

void Connection::enqueue(const QString& exchangeId, QObject* command, QJsonObject message)
{
    const QByteArray frame = encodeFrame(message);
    if (frame.size() - kFrameHeaderSize > static_cast<int>(kMaxFrameSize)) {
        // Never sent, so only this exchange fails; the connection and the
        // exchanges waiting on it are fine.
        const QString reason = QStringLiteral("The request is larger than the channel allows");
        if (auto* named = qobject_cast<ICommand*>(command))
            named->handleTransportError(reason);
        else if (auto* typed = qobject_cast<V2::Command*>(command))
            typed->handleTransportError(reason);
        return;
    }
    m_pending.insert(exchangeId, command);
    m_outbox.append({exchangeId, frame});
    ensureConnected();
    flush();
}

void Connection::ensureConnected()
{
    if (m_socket)
        return;
    m_socket = new QLocalSocket(this);
    connect(m_socket, &QLocalSocket::readyRead, this, &Connection::onReadyRead);
    connect(m_socket, &QLocalSocket::connected, this, &Connection::onConnected);
    connect(m_socket, &QLocalSocket::disconnected, this, &Connection::onDisconnected);
    connect(m_socket, &QLocalSocket::errorOccurred, this, &Connection::onSocketError);
    m_socket->connectToServer(m_serverName);
}

void Connection::onConnected()
{
    if (m_lastWordsFd < 0 && m_socket->socketDescriptor() >= 0)
        m_lastWordsFd = ::fcntl(static_cast<int>(m_socket->socketDescriptor()), F_DUPFD_CLOEXEC, 0);
    flush();
}

void Connection::flush()
{
    if (!m_socket || m_socket->state() != QLocalSocket::ConnectedState)
        return;
    for (const auto& [exchangeId, frame] : qAsConst(m_outbox)) {
        m_socket->write(frame);
        if (!exchangeId.isEmpty())
            m_written.insert(exchangeId);
    }
    m_outbox.clear();
}

void Connection::onReadyRead()
{
    m_reader.append(m_socket->readAll());
    readFrames();
}

void Connection::readFrames()
{
    for (;;) {
        QJsonObject message;
        switch (m_reader.next(&message)) {
        case FrameReader::Result::NeedMore:
            return;
        case FrameReader::Result::Frame:
            dispatch(message);
            break;
        case FrameReader::Result::TooLarge:
        case FrameReader::Result::Malformed:
            qCWarning(lcChannel) << "The service sent a frame that cannot be read; closing";
            failAll(QStringLiteral("The backup service sent a message that cannot be read"));
            return;
        }
        if (!m_socket)
            return;
    }
}

void Connection::dispatch(const QJsonObject& message)
{
    const QString type = message.value(QLatin1String(Header::Type::Key)).toString();
    if (type == QLatin1String(Header::Type::Notification)) {
        emit notificationReceived(
            QJsonDocument(message.value(QLatin1String(Header::Data)).toObject()));
        return;
    }
    // A reply to no exchange is the service turning the whole connection
    // away before reading anything from it: every request on it failed.
    if (!message.contains(QLatin1String(Header::Id)) &&
        (type == QLatin1String(Header::Type::Reply) ||
         type == QLatin1String(Header::Type::ReplyV2))) {
        const QString reason = message.value(QLatin1String(Header::Status::ErrorString)).toString();
        failAll(reason.isEmpty() ? QStringLiteral("The backup service refused the connection")
                                 : reason.left(1024),
                true);
        return;
    }
    const QString id = message.value(QLatin1String(Header::Id)).toString();
    const QPointer<QObject> target = m_pending.take(id);
    m_written.remove(id);
    if (!target)
        return;
    if (auto* named = qobject_cast<ICommand*>(target.data()))
        named->handleReply(message);
    else if (auto* typed = qobject_cast<V2::Command*>(target.data()))
        typed->handleReply(message);
}

bool Connection::salvageLastWords()
{
    // A service that turns a client away writes its reason and closes at
    // once. When our request is written after that close, the write fails
    // and Qt closes its socket with the reason still unread: read it through
    // our own handle so that the user sees it.
    if (!m_socket)
        return true;
    m_reader.append(m_socket->readAll());
    if (m_lastWordsFd >= 0) {
        char buffer[16384];
        for (;;) {
            const ssize_t got = ::recv(m_lastWordsFd, buffer, sizeof(buffer), MSG_DONTWAIT);
            if (got <= 0)
                break;
            m_reader.append(QByteArray(buffer, static_cast<int>(got)));
        }
    }
    readFrames();
    return !m_socket;
}

void Connection::onSocketError(QLocalSocket::LocalSocketError error)
{
    if (salvageLastWords())
        return;
    if (error == QLocalSocket::PeerClosedError) {
        failAll(QStringLiteral("The backup service closed the connection"));
        return;
    }
    if (error == QLocalSocket::SocketAccessError) {
        // The socket answers its owner only; Qt's own words ("Socket access
        // error") say neither which socket nor what to do.
        failAll(QStringLiteral("Cannot reach the backup service at %1: permission denied; it "
                               "answers its own user only (root on a system installation): run "
                               "orvV2 as that user")
                    .arg(m_serverName));
        return;
    }
    const QString reason = (error == QLocalSocket::ServerNotFoundError ||
                            error == QLocalSocket::ConnectionRefusedError)
                               ? QStringLiteral("The backup service is not running")
                               : QStringLiteral("Cannot reach the backup service: %1")
                                     .arg(m_socket ? m_socket->errorString() : QString());
    failAll(reason);
}

void Connection::onDisconnected()
{
    if (salvageLastWords())
        return;
    failAll(QStringLiteral("The backup service closed the connection"));
}

void Connection::failAll(const QString& reason, bool nothingRead)
{
    if (m_socket) {
        QLocalSocket* socket = m_socket;
        m_socket = nullptr;
        socket->disconnect(this);
        socket->abort();
        socket->deleteLater();
    }
    if (m_lastWordsFd >= 0) {
        ::close(m_lastWordsFd);
        m_lastWordsFd = -1;
    }
    m_outbox.clear();
    m_reader = FrameReader();
    m_subscribed = false;
    const auto pending = std::exchange(m_pending, {});
    const auto written = std::exchange(m_written, {});
    for (auto it = pending.cbegin(); it != pending.cend(); ++it) {
        const bool delivered = !nothingRead && written.contains(it.key());
        if (auto* named = qobject_cast<ICommand*>(it.value().data()))
            named->handleTransportError(reason, delivered);
        else if (auto* typed = qobject_cast<V2::Command*>(it.value().data()))
            typed->handleTransportError(reason, delivered);
    }
}

} // namespace Orv::Common::Communication
