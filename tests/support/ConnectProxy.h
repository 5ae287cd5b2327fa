#pragma once

#include <QByteArray>
#include <QList>
#include <atomic>
#include <mutex>
#include <thread>
#include <vector>

namespace OrvTest {

// An HTTP proxy on 127.0.0.1 that knows only CONNECT: it opens the asked-for
// TCP connection and relays bytes both ways. It records each CONNECT target
// and, when a user and password are set, refuses requests without them (407).
class ConnectProxy
{
public:
    ConnectProxy();
    ~ConnectProxy();
    ConnectProxy(const ConnectProxy&) = delete;
    ConnectProxy& operator=(const ConnectProxy&) = delete;

    int port() const { return m_port; }
    void requireLogin(const QByteArray& user, const QByteArray& password);
    // "host:port" of every tunnel asked for, refused ones included.
    QList<QByteArray> targets() const;

private:
    void serve();
    void tunnel(int client);

    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_mutex;
    QByteArray m_credentials;
    QList<QByteArray> m_targets;
    std::thread m_acceptor;
    std::vector<std::thread> m_tunnels;
};

} // namespace OrvTest
