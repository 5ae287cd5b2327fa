#include "support/RecordingHttpServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace OrvTest {

QByteArray RecordingHttpServer::Request::header(const QByteArray& name) const
{
    for (const auto& header : headers)
        if (header.first.toLower() == name.toLower())
            return header.second;
    return {};
}

RecordingHttpServer::RecordingHttpServer()
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
    m_thread = std::thread([this] { serve(); });
}

RecordingHttpServer::~RecordingHttpServer()
{
    m_stop = true;
    m_thread.join();
    ::close(m_listener);
}

void RecordingHttpServer::enqueue(const Reply& reply)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_replies.append(reply);
}

void RecordingHttpServer::setDefaultReply(const Reply& reply)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_default = reply;
}

void RecordingHttpServer::setResponder(std::function<bool(const Request&, Reply*)> responder)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    m_responder = std::move(responder);
}

QList<RecordingHttpServer::Request> RecordingHttpServer::requests() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_requests;
}

void RecordingHttpServer::serve()
{
    while (!m_stop) {
        pollfd waiting{m_listener, POLLIN, 0};
        if (::poll(&waiting, 1, 50) <= 0)
            continue;
        const int client = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0)
            continue;
        const timeval limit{5, 0};
        ::setsockopt(client, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
        answer(client);
        ::close(client);
    }
}

void RecordingHttpServer::answer(int client)
{
    QByteArray data;
    char buffer[65536];
    int headEnd = -1;
    while (headEnd < 0) {
        const ssize_t got = ::recv(client, buffer, sizeof(buffer), 0);
        if (got <= 0)
            return;
        data.append(buffer, static_cast<int>(got));
        headEnd = data.indexOf("\r\n\r\n");
    }
    Request request;
    const QList<QByteArray> lines = data.left(headEnd).split('\n');
    const QList<QByteArray> first = lines.value(0).trimmed().split(' ');
    request.method = first.value(0);
    request.target = first.value(1);
    qsizetype contentLength = 0;
    for (int i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines.at(i).trimmed();
        const int colon = line.indexOf(':');
        if (colon <= 0)
            continue;
        request.headers.append({line.left(colon).trimmed(), line.mid(colon + 1).trimmed()});
        if (line.left(colon).trimmed().toLower() == "content-length")
            contentLength = line.mid(colon + 1).trimmed().toLongLong();
    }
    while (data.size() < headEnd + 4 + contentLength) {
        const ssize_t got = ::recv(client, buffer, sizeof(buffer), 0);
        if (got <= 0)
            return;
        data.append(buffer, static_cast<int>(got));
    }
    request.body = data.mid(headEnd + 4, contentLength);

    Reply reply;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_requests.append(request);
        if (!m_responder || !m_responder(request, &reply))
            reply = m_replies.isEmpty() ? m_default : m_replies.takeFirst();
    }
    QByteArray out = "HTTP/1.1 " + QByteArray::number(reply.status) + " Scripted\r\n";
    for (const auto& header : reply.headers)
        out += header.first + ": " + header.second + "\r\n";
    // Answers to HEAD announce a length but carry no body.
    const bool head = request.method == "HEAD";
    out += "Content-Length: " + QByteArray::number(reply.body.size()) +
           "\r\nConnection: close\r\n\r\n" + (head ? QByteArray() : reply.body);
    for (qsizetype sent = 0; sent < out.size();) {
        const ssize_t wrote = ::send(client, out.constData() + sent,
                                     static_cast<size_t>(out.size() - sent), MSG_NOSIGNAL);
        if (wrote <= 0)
            return;
        sent += wrote;
    }
}

} // namespace OrvTest
