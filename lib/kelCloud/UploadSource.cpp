#include "kelCloud/UploadSource.h"

#include <QIODevice>

namespace Kel::Cloud {

Status UploadSource::read(QIODevice* source, qint64 limit, QByteArray* data)
{
    data->clear();
    while (data->size() < limit) {
        const QByteArray more = source->read(limit - data->size());
        if (!more.isEmpty()) {
            data->append(more);
            continue;
        }
        if (!source->waitForReadyRead(30000))
            break;
    }
    if (data->size() < limit && source->isOpen() && !source->atEnd() && source->isSequential())
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the data source stopped: %1").arg(source->errorString()));
    return Status::success();
}

Status UploadSource::next(qint64 limit, QByteArray* piece)
{
    piece->clear();
    if (finished())
        return Status::success();
    const qint64 wanted = m_remaining < 0 ? limit : qMin(limit, m_remaining);
    const Status status = read(m_source, wanted, piece);
    if (!status.ok())
        return status;
    m_taken += piece->size();
    if (m_remaining > 0)
        m_remaining -= piece->size();
    if (piece->size() == wanted)
        return Status::success();
    m_ended = true;
    if (m_remaining > 0)
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the data ended after %1 of %2 bytes")
                                   .arg(m_taken)
                                   .arg(m_taken + m_remaining));
    return Status::success();
}

} // namespace Kel::Cloud
