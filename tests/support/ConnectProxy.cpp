#include "support/ConnectProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace OrvTest {

namespace {

bool sendAll(int socket, const char* data, qsizetype size)
{
    for (qsizetype sent = 0; sent < size;) {
        const ssize_t wrote =
            ::send(socket, data + sent, static_cast<size_t>(size - sent), MSG_NOSIGNAL);
        if (wrote <= 0)
            return false;
        sent += wrote;
    }
    return true;
}

int connectTo(const QByteArray& target)
{
    const int colon = target.lastIndexOf(':');
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(target.mid(colon + 1).toInt()));
    if (::inet_pton(AF_INET, target.left(colon).constData(), &address.sin_addr) != 1)
        return -1;
    const int server = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::connect(server, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
        ::close(server);
        return -1;
    }
    return server;
}

} // namespace

ConnectProxy::ConnectProxy()
{
    m_listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof(address);
    ::bind(m_listener, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    ::listen(m_listener, 16);
    ::getsockname(m_listener, reinterpret_cast<sockaddr*>(&address), &length);
    m_port = ntohs(address.sin_port);
    m_acceptor = std::thread([this] { serve(); });
}

ConnectProxy::~ConnectProxy()
{
    m_stop = true;
    m_acceptor.join();
    for (std::thread& tunnel : m_tunnels)
        tunnel.join();
    ::close(m_listener);
}

void ConnectProxy::requireLogin(const QByteArray& user, const QByteArray& password)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_credentials = (user + ':' + password).toBase64();
}

QList<QByteArray> ConnectProxy::targets() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_targets;
}

void ConnectProxy::serve()
{
    while (!m_stop) {
        pollfd waiting{m_listener, POLLIN, 0};
        if (::poll(&waiting, 1, 50) <= 0)
            continue;
        const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0)
            m_tunnels.emplace_back([this, client] { tunnel(client); });
    }
}

void ConnectProxy::tunnel(int client)
{
    QByteArray head;
    char buffer[65536];
    while (!head.contains("\r\n\r\n")) {
        const ssize_t got = ::recv(client, buffer, sizeof(buffer), 0);
        if (got <= 0) {
            ::close(client);
            return;
        }
        head.append(buffer, static_cast<int>(got));
    }
    const QByteArray target = head.split(' ').value(1);
    QByteArray credentials;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_targets.append(target);
        credentials = m_credentials;
    }
    const bool allowed = credentials.isEmpty() ||
                         head.contains("Proxy-Authorization: Basic " + credentials + "\r\n");
    const int server = allowed && head.startsWith("CONNECT ") ? connectTo(target) : -1;
    if (server < 0) {
        const QByteArray refusal = allowed ? "HTTP/1.1 502 Bad Gateway\r\nContent-Length: 0\r\n\r\n"
                                           : "HTTP/1.1 407 Proxy Authentication Required\r\n"
                                             "Proxy-Authenticate: Basic realm=\"test\"\r\n"
                                             "Content-Length: 0\r\n\r\n";
        sendAll(client, refusal.constData(), refusal.size());
        ::close(client);
        return;
    }
    const QByteArray established = "HTTP/1.1 200 Connection established\r\n\r\n";
    sendAll(client, established.constData(), established.size());
    pollfd ends[2] = {{client, POLLIN, 0}, {server, POLLIN, 0}};
    while (!m_stop) {
        if (::poll(ends, 2, 50) <= 0)
            continue;
        bool closed = false;
        for (int i = 0; i < 2 && !closed; ++i) {
            if (!(ends[i].revents & (POLLIN | POLLHUP | POLLERR)))
                continue;
            const ssize_t got = ::recv(ends[i].fd, buffer, sizeof(buffer), 0);
            closed = got <= 0 || !sendAll(ends[1 - i].fd, buffer, got);
        }
        if (closed)
            break;
    }
    ::close(server);
    ::close(client);
}

} // namespace OrvTest
