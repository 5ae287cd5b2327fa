#pragma once

#include "support/RecordingHttpServer.h"

#include <QByteArray>
#include <QList>
#include <QPair>
#include <QString>

namespace OrvTest {

// An independent account of version 4 request signatures, written from the
// published description, to judge what the client sends. Checked itself
// against the published example values.
class Aws4Reference
{
public:
    static QByteArray signingKey(const QByteArray& secret, const QByteArray& date,
                                 const QByteArray& region, const QByteArray& service);
    // headers: lower-case names with values, in the order of signedHeaders.
    static QByteArray canonicalRequest(const QByteArray& method, const QByteArray& path,
                                       const QByteArray& query,
                                       const QList<QPair<QByteArray, QByteArray>>& headers,
                                       const QByteArray& signedHeaders,
                                       const QByteArray& payloadHash);
    static QByteArray stringToSign(const QByteArray& timestamp, const QByteArray& scope,
                                   const QByteArray& canonicalRequest);
    // Lower-case hex.
    static QByteArray signature(const QByteArray& signingKey, const QByteArray& stringToSign);
    // The canonical form of a query as sent: parameters decoded, encoded again
    // the one right way, sorted.
    static QByteArray canonicalQuery(const QByteArray& query);
    static QByteArray canonicalPath(const QByteArray& path);

    // Recomputes the signature of a recorded request from its own parts in
    // canonical form; empty when it matches, otherwise what went wrong.
    static QString verify(const RecordingHttpServer::Request& request, const QByteArray& secret);
};

} // namespace OrvTest
