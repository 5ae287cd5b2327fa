#pragma once

#include <QByteArray>
#include <cstring>

namespace Kel::Archive {

// Little helpers for the binary records: unsigned LEB128 numbers, zigzag for
// signed ones, and length-prefixed byte strings. The reader never reads past
// its end; after a short or malformed input ok() is false and every further
// read gives zero.
class ByteWriter
{
public:
    explicit ByteWriter(QByteArray* out) : m_out(out) {}

    void number(quint64 value)
    {
        while (value >= 0x80) {
            m_out->append(char(value | 0x80));
            value >>= 7;
        }
        m_out->append(char(value));
    }
    void signedNumber(qint64 value) { number((quint64(value) << 1) ^ quint64(value >> 63)); }
    void byte(quint8 value) { m_out->append(char(value)); }
    void raw(const QByteArray& bytes) { m_out->append(bytes); }
    void bytes(const QByteArray& bytes)
    {
        number(quint64(bytes.size()));
        m_out->append(bytes);
    }
    void fixed32(quint32 value)
    {
        char b[4] = {char(value), char(value >> 8), char(value >> 16), char(value >> 24)};
        m_out->append(b, 4);
    }

private:
    QByteArray* m_out;
};

class ByteReader
{
public:
    ByteReader(const char* data, qsizetype size) : m_p(data), m_end(data + size) {}
    explicit ByteReader(const QByteArray& data) : ByteReader(data.constData(), data.size()) {}

    bool ok() const { return m_ok; }
    bool atEnd() const { return m_p == m_end; }
    qsizetype remaining() const { return m_end - m_p; }

    quint64 number()
    {
        quint64 value = 0;
        for (int shift = 0; shift < 64; shift += 7) {
            if (!m_ok || m_p == m_end) {
                return fail();
            }
            const quint8 b = quint8(*m_p++);
            value |= quint64(b & 0x7f) << shift;
            if (!(b & 0x80)) {
                return value;
            }
        }
        return fail();
    }
    qint64 signedNumber()
    {
        const quint64 v = number();
        return qint64(v >> 1) ^ -qint64(v & 1);
    }
    quint8 byte()
    {
        if (!m_ok || m_p == m_end) {
            return quint8(fail());
        }
        return quint8(*m_p++);
    }
    QByteArray raw(qsizetype size)
    {
        if (!m_ok || size < 0 || size > remaining()) {
            fail();
            return QByteArray();
        }
        QByteArray out(m_p, int(size));
        m_p += size;
        return out;
    }
    QByteArray bytes()
    {
        const quint64 size = number();
        if (size > quint64(remaining())) {
            fail();
            return QByteArray();
        }
        return raw(qsizetype(size));
    }

private:
    quint64 fail()
    {
        m_ok = false;
        m_p = m_end;
        return 0;
    }

    const char* m_p;
    const char* m_end;
    bool m_ok = true;
};

inline quint32 readFixed32(const char* p)
{
    const auto* b = reinterpret_cast<const uchar*>(p);
    return quint32(b[0]) | quint32(b[1]) << 8 | quint32(b[2]) << 16 | quint32(b[3]) << 24;
}

} // namespace Kel::Archive
