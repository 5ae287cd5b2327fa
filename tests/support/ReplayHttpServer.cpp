#include "support/ReplayHttpServer.h"

namespace OrvTest {

ReplayHttpServer::ReplayHttpServer()
{
    m_server.setDefaultReply(json(404, R"({"error":"no reply recorded for this request"})"));
    m_server.setResponder(
        [this](const Request& request, Reply* reply) { return respond(request, reply); });
}

void ReplayHttpServer::route(const QByteArray& method, const QByteArray& pathPrefix,
                             const QList<Reply>& replies)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    for (Route& existing : m_routes) {
        if (existing.method == method && existing.prefix == pathPrefix) {
            existing.replies = replies;
            return;
        }
    }
    m_routes.append({method, pathPrefix, replies});
}

QList<ReplayHttpServer::Request> ReplayHttpServer::requestsTo(const QByteArray& pathPrefix) const
{
    QList<Request> matching;
    for (const Request& request : m_server.requests())
        if (request.path().startsWith(pathPrefix))
            matching.append(request);
    return matching;
}

ReplayHttpServer::Reply ReplayHttpServer::json(int status, const QByteArray& body,
                                               const QList<QPair<QByteArray, QByteArray>>& headers)
{
    Reply reply{status, headers, body};
    reply.headers.append(qMakePair(QByteArray("Content-Type"), QByteArray("application/json")));
    return reply;
}

bool ReplayHttpServer::respond(const Request& request, Reply* reply)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    Route* best = nullptr;
    const QByteArray path = request.path();
    for (Route& route : m_routes)
        if (route.method == request.method && path.startsWith(route.prefix) &&
            !route.replies.isEmpty() && (!best || route.prefix.size() > best->prefix.size()))
            best = &route;
    if (!best)
        return false;
    *reply = best->replies.size() > 1 ? best->replies.takeFirst() : best->replies.first();
    return true;
}

} // namespace OrvTest
