#pragma once

#include "kelCloud/ObjectInfo.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace Kel::Cloud {

// The XML documents of the S3 protocol that the backend reads and writes.
class S3Xml
{
public:
    struct Error
    {
        QString code;
        QString message;
        // Where the bucket really is, when the service tells.
        QString region;
    };

    struct ObjectPage
    {
        QList<ObjectInfo> objects;
        bool truncated = false;
        // Where the next page starts: NextMarker, else the last key.
        QString nextMarker;
    };

    // False when the body is not an <Error> document.
    static bool parseError(const QByteArray& body, Error* error);
    static bool parseBuckets(const QByteArray& body, QList<ObjectInfo>* buckets);
    static bool parseObjects(const QByteArray& body, ObjectPage* page);
    // Empty when the body holds none.
    static QString parseUploadId(const QByteArray& body);
    // The body that completes a multipart upload of these parts (ETags in the
    // order of the part numbers, from 1).
    static QByteArray completeUpload(const QList<QByteArray>& etags);
    // S3 writes times as ISO 8601 in listings.
    static QDateTime parseTime(const QString& text);
};

} // namespace Kel::Cloud
