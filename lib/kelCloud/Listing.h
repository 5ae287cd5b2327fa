#pragma once

#include "kelCloud/ObjectInfo.h"
#include "kelCloud/ObjectName.h"

#include <QList>

namespace Kel::Cloud {

// Follows a listing from page to page. fetch(marker, &next) reads the page
// that starts at marker (empty: the first) and leaves in next where the
// following one starts (empty: it was the last). A marker that does not move
// would repeat its page forever, so it ends the listing as well.
template <typename FetchPage> Status followPages(FetchPage fetch)
{
    QString marker;
    for (;;) {
        QString next;
        const Status status = fetch(marker, &next);
        if (!status.ok() || next.isEmpty() || next == marker)
            return status;
        marker = next;
    }
}

// Appends the entries a listing shows: the library's own objects (probes,
// partial writes) stay hidden.
inline void appendListed(const QList<ObjectInfo>& entries, QList<ObjectInfo>* objects)
{
    for (const ObjectInfo& object : entries)
        if (ObjectName::isListed(object.name.section(QLatin1Char('/'), -1)))
            objects->append(object);
}

} // namespace Kel::Cloud
