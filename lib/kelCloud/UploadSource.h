#pragma once

#include "kelCloud/Status.h"

#include <QByteArray>

class QIODevice;

namespace Kel::Cloud {

// An object's data as a backend uploads it, one piece at a time: sequential
// sources (pipes, processes) are waited for, and a source that ends before
// the size it was announced with is an error rather than a shorter object.
class UploadSource
{
public:
    // size: the bytes to take, or negative for everything up to the end.
    UploadSource(QIODevice* source, qint64 size) : m_source(source), m_remaining(size) {}

    // The next piece: limit bytes, fewer only at the end of the data.
    Status next(qint64 limit, QByteArray* piece);
    // Whether every byte has been taken.
    bool finished() const { return m_ended || m_remaining == 0; }

    // Up to limit bytes, waiting for a sequential source; an error when the
    // source failed rather than ended.
    static Status read(QIODevice* source, qint64 limit, QByteArray* data);

private:
    QIODevice* m_source;
    qint64 m_remaining;
    qint64 m_taken = 0;
    bool m_ended = false;
};

} // namespace Kel::Cloud
