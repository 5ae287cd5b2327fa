#include "orvCommon/Communication/Frame.h"

#include <QJsonDocument>
#include <QtEndian>

namespace Orv::Common::Communication {

QByteArray encodeFrame(const QJsonObject& object)
{
    const QByteArray body = QJsonDocument(object).toJson(QJsonDocument::Compact);
    QByteArray frame(kFrameHeaderSize, Qt::Uninitialized);
    qToBigEndian<quint32>(static_cast<quint32>(body.size()), frame.data());
    frame.append(body);
    return frame;
}

qsizetype FrameReader::frameSize() const
{
    if (pending() < kFrameHeaderSize)
        return -1;
    return kFrameHeaderSize +
           static_cast<qsizetype>(qFromBigEndian<quint32>(m_buffer.constData() + m_offset));
}

FrameReader::Result FrameReader::next(QJsonObject* object)
{
    const qsizetype available = m_buffer.size() - m_offset;
    if (available < kFrameHeaderSize)
        return Result::NeedMore;
    const quint32 length = qFromBigEndian<quint32>(m_buffer.constData() + m_offset);
    if (length > kMaxFrameSize)
        return Result::TooLarge;
    if (available < kFrameHeaderSize + static_cast<qsizetype>(length))
        return Result::NeedMore;

    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(
        QByteArray::fromRawData(m_buffer.constData() + m_offset + kFrameHeaderSize,
                                static_cast<int>(length)),
        &error);
    m_offset += kFrameHeaderSize + length;
    // Compact the buffer only once the consumed part dominates, so that a burst
    // of small frames is not copied once per frame.
    if (m_offset == m_buffer.size()) {
        m_buffer.clear();
        m_offset = 0;
    } else if (m_offset > 64 * 1024 && m_offset * 2 > m_buffer.size()) {
        m_buffer.remove(0, static_cast<int>(m_offset));
        m_offset = 0;
    }
    if (error.error != QJsonParseError::NoError || !document.isObject())
        return Result::Malformed;
    *object = document.object();
    return Result::Frame;
}

} // namespace Orv::Common::Communication
