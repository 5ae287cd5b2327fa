#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

namespace Kel::Cloud {

// The URI forms of S3 requests. They are written in the canonical form of
// version 4 signatures from the start (every byte but A-Z a-z 0-9 - . _ ~
// percent-encoded in upper-case hex, query parameters sorted, "name=" for
// empty values), because the HTTP library signs the path and query exactly as
// it sends them.
class S3Uri
{
public:
    // "/" is kept as it is in paths and encoded elsewhere.
    static QByteArray encode(const QString& text, bool keepSlash);
    static QByteArray query(const QMap<QString, QString>& parameters);
};

} // namespace Kel::Cloud
