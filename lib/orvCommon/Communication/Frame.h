#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace Orv::Common::Communication {

// A frame is a 4-byte big-endian length followed by that many bytes of one
// compact UTF-8 JSON object. Anything larger than kMaxFrameSize is refused by
// both ends: a peer that announces more is broken or hostile.
inline constexpr quint32 kMaxFrameSize = 16u * 1024u * 1024u;
inline constexpr int kFrameHeaderSize = 4;

QByteArray encodeFrame(const QJsonObject& object);

// Accumulates bytes from a stream and hands out whole frames.
class FrameReader
{
public:
    enum class Result { NeedMore, Frame, TooLarge, Malformed };

    void append(const QByteArray& bytes) { m_buffer.append(bytes); }
    // On Frame, *object holds the next message. TooLarge and Malformed are
    // final: the stream cannot be resynchronised and must be closed.
    Result next(QJsonObject* object);
    qsizetype buffered() const { return m_buffer.size(); }
    // Bytes received and not yet handed out as frames.
    qsizetype pending() const { return m_buffer.size() - m_offset; }
    // The whole size (header included) of the frame being received, once its
    // header is in; -1 before.
    qsizetype frameSize() const;

private:
    QByteArray m_buffer;
    qsizetype m_offset = 0;
};

} // namespace Orv::Common::Communication
