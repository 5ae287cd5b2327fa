#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <atomic>
#include <functional>
#include <mutex>
#include <thread>

namespace OrvTest {

// A plain HTTP server on 127.0.0.1 that answers with scripted replies, one per
// request (then a default one), and records every request it received. For
// what a real store cannot be made to do on demand: refuse a request a few
// times, or show exactly what the client sent. One request per connection.
class RecordingHttpServer
{
public:
    struct Reply
    {
        int status = 200;
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;
    };

    struct Request
    {
        QByteArray method;
        QByteArray target; // path and query as sent
        QList<QPair<QByteArray, QByteArray>> headers;
        QByteArray body;

        QByteArray path() const { return target.split('?').value(0); }
        QByteArray query() const
        {
            return target.contains('?') ? target.mid(target.indexOf('?') + 1) : QByteArray();
        }
        // The first header of that name, any case.
        QByteArray header(const QByteArray& name) const;
    };

    RecordingHttpServer();
    ~RecordingHttpServer();
    RecordingHttpServer(const RecordingHttpServer&) = delete;
    RecordingHttpServer& operator=(const RecordingHttpServer&) = delete;

    int port() const { return m_port; }
    void enqueue(const Reply& reply);
    void setDefaultReply(const Reply& reply);
    // Chooses the reply from the request before the queue is consulted; the
    // queue's turn when it returns false. Called on the server's thread.
    void setResponder(std::function<bool(const Request&, Reply*)> responder);
    QList<Request> requests() const;

private:
    void serve();
    void answer(int client);

    int m_listener = -1;
    int m_port = 0;
    std::atomic<bool> m_stop{false};
    mutable std::mutex m_mutex;
    QList<Reply> m_replies;
    Reply m_default;
    std::function<bool(const Request&, Reply*)> m_responder;
    QList<Request> m_requests;
    std::thread m_thread;
};

} // namespace OrvTest
