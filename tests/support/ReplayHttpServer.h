#pragma once

#include "support/RecordingHttpServer.h"

#include <QByteArray>
#include <QList>
#include <mutex>

namespace OrvTest {

// A loopback HTTP server that plays a web service back from replies recorded
// per route: a request goes to the route of its method with the longest path
// prefix that its path starts with; a route gives its replies in order and
// repeats its last. What no route takes is answered 404. Every request is
// recorded, for the tests to read what the client sent.
class ReplayHttpServer
{
public:
    using Reply = RecordingHttpServer::Reply;
    using Request = RecordingHttpServer::Request;

    ReplayHttpServer();

    QByteArray url() const { return "http://127.0.0.1:" + QByteArray::number(m_server.port()); }
    // Replaces the route's replies when it exists.
    void route(const QByteArray& method, const QByteArray& pathPrefix, const QList<Reply>& replies);
    QList<Request> requests() const { return m_server.requests(); }
    // The requests whose path starts with the prefix, in order.
    QList<Request> requestsTo(const QByteArray& pathPrefix) const;

    static Reply json(int status, const QByteArray& body,
                      const QList<QPair<QByteArray, QByteArray>>& headers = {});

private:
    struct Route
    {
        QByteArray method;
        QByteArray prefix;
        QList<Reply> replies;
    };

    bool respond(const Request& request, Reply* reply);

    std::mutex m_mutex;
    QList<Route> m_routes;
    RecordingHttpServer m_server;
};

} // namespace OrvTest
