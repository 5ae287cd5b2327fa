#pragma once

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QFile>
#include <QJsonObject>
#include <QUuid>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <optional>
#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

namespace OrvTest {

// A client of the service that writes whatever bytes a test gives it, for the
// cases the client library would never produce. It never blocks: while it
// waits it keeps the event loop turning, so it can also talk to a server that
// runs inside the test process.
class ServiceRawClient
{
public:
    explicit ServiceRawClient(const QString& socketPath)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray path = QFile::encodeName(socketPath);
        std::memcpy(address.sun_path, path.constData(),
                    std::min(sizeof(address.sun_path) - 1, static_cast<size_t>(path.size())));
        m_fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
        if (m_fd >= 0 &&
            ::connect(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
            ::close(m_fd);
            m_fd = -1;
        }
        if (m_fd >= 0)
            ::fcntl(m_fd, F_SETFL, ::fcntl(m_fd, F_GETFL) | O_NONBLOCK);
    }
    ~ServiceRawClient() { close(); }
    ServiceRawClient(const ServiceRawClient&) = delete;
    ServiceRawClient& operator=(const ServiceRawClient&) = delete;

    bool isConnected() const { return m_fd >= 0; }
    void close()
    {
        if (m_fd >= 0)
            ::close(m_fd);
        m_fd = -1;
    }

    bool sendBytes(const QByteArray& bytes, int timeoutMs = 5000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        qsizetype sent = 0;
        while (m_fd >= 0 && sent < bytes.size()) {
            const ssize_t count = ::send(m_fd, bytes.constData() + sent,
                                         static_cast<size_t>(bytes.size() - sent), MSG_NOSIGNAL);
            if (count > 0) {
                sent += count;
                continue;
            }
            if (count < 0 && errno != EAGAIN && errno != EINTR)
                return false;
            if (!waitFor(POLLOUT, deadline))
                return false;
        }
        return m_fd >= 0;
    }
    // Sends what the socket takes at once, without waiting; how much that was.
    qsizetype sendSome(const QByteArray& bytes)
    {
        qsizetype sent = 0;
        while (m_fd >= 0 && sent < bytes.size()) {
            const ssize_t count =
                ::send(m_fd, bytes.constData() + sent, static_cast<size_t>(bytes.size() - sent),
                       MSG_NOSIGNAL | MSG_DONTWAIT);
            if (count <= 0)
                break;
            sent += count;
        }
        return sent;
    }
    bool send(const QJsonObject& message)
    {
        return sendBytes(Orv::Common::Communication::encodeFrame(message));
    }

    // The next frame, or nothing when the connection ended, the stream broke
    // or nothing came in time.
    std::optional<QJsonObject> receive(int timeoutMs = 10000)
    {
        using Result = Orv::Common::Communication::FrameReader::Result;
        const QDeadlineTimer deadline(timeoutMs);
        for (;;) {
            QJsonObject message;
            const Result result = m_reader.next(&message);
            if (result == Result::Frame)
                return message;
            if (result != Result::NeedMore || !readSome(deadline))
                return std::nullopt;
        }
    }

    // Sends a named request and returns its reply.
    std::optional<QJsonObject> call(const QString& command, const QJsonObject& params = {})
    {
        namespace Header = Orv::Common::Communication::Commands::Format::Header;
        const QString id = QString::number(++m_lastId);
        if (!send({{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Request)},
                   {QLatin1String(Header::Command), command},
                   {QLatin1String(Header::Id), id},
                   {QLatin1String(Header::SessionId), QStringLiteral("raw-client")},
                   {QLatin1String(Header::Params), params}}))
            return std::nullopt;
        return receive();
    }

    // Sends a typed request and returns its reply.
    std::optional<QJsonObject> callTyped(const QUuid& commandId, const QJsonObject& request = {})
    {
        namespace Header = Orv::Common::Communication::Commands::Format::Header;
        const QString id = QString::number(++m_lastId);
        if (!send({{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::RequestV2)},
                   {QLatin1String(Header::CommandId), commandId.toString()},
                   {QLatin1String(Header::Id), id},
                   {QLatin1String(Header::SessionId), QStringLiteral("raw-client")},
                   {QLatin1String(Header::TypedRequest), request}}))
            return std::nullopt;
        return receive();
    }

    // True when the other end closes the connection within the time; what it
    // still sends before that is read and thrown away.
    bool waitUntilClosed(int timeoutMs = 10000)
    {
        const QDeadlineTimer deadline(timeoutMs);
        while (readSome(deadline))
            m_reader = {};
        return m_ended;
    }

private:
    bool waitFor(short events, const QDeadlineTimer& deadline)
    {
        while (!deadline.hasExpired()) {
            QCoreApplication::processEvents();
            pollfd entry{m_fd, events, 0};
            if (::poll(&entry, 1, 5) > 0)
                return true;
        }
        return false;
    }

    bool readSome(const QDeadlineTimer& deadline)
    {
        char buffer[64 * 1024];
        while (m_fd >= 0 && !m_ended) {
            const ssize_t count = ::recv(m_fd, buffer, sizeof(buffer), 0);
            if (count > 0) {
                m_reader.append(QByteArray(buffer, static_cast<int>(count)));
                return true;
            }
            if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
                m_ended = true;
                return false;
            }
            if (!waitFor(POLLIN, deadline))
                return false;
        }
        return false;
    }

    int m_fd = -1;
    bool m_ended = false;
    quint64 m_lastId = 0;
    Orv::Common::Communication::FrameReader m_reader;
};

} // namespace OrvTest
