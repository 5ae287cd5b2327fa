#pragma once

#include "kelCloud/ObjectInfo.h"

#include <QByteArray>
#include <QList>
#include <QString>

namespace Kel::Cloud {

// The XML documents of the Azure Blob service that the backend reads and
// writes.
class AzureXml
{
public:
    struct Error
    {
        QString code;
        // The first line of the service's message (the rest is its request
        // id and time), with the authentication detail when there is one.
        QString message;
    };

    // One page of a container or blob listing.
    struct Page
    {
        QList<ObjectInfo> entries;
        // Where the next page starts; empty on the last.
        QString nextMarker;
    };

    // False when the body is not an <Error> document.
    static bool parseError(const QByteArray& body, Error* error);
    // Containers: names and last-modified times, size -1.
    static bool parseContainers(const QByteArray& body, Page* page);
    // Blobs: names, sizes and last-modified times.
    static bool parseBlobs(const QByteArray& body, Page* page);
    // The body of Put Block List committing these blocks in order.
    static QByteArray blockList(const QList<QByteArray>& blockIds);
};

} // namespace Kel::Cloud
