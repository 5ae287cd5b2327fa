#include "kelBackupFormat/Pack.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Cipher.h"
#include "kelStreams/Hash.h"

namespace Kel::Archive {

namespace {

constexpr char kHeaderMagic[] = "ORH1";
constexpr char kIndexMagic[] = "ORI1";
constexpr int kIdSize = 32;

void writeEntries(ByteWriter& w, const QVector<BlobEntry>& entries)
{
    w.number(quint64(entries.size()));
    for (const BlobEntry& e : entries) {
        w.raw(e.id);
        w.byte(quint8(e.type) | (e.compressed ? 0x80 : 0));
        w.number(e.offset);
        w.number(e.storedLength);
        w.number(e.rawLength);
    }
}

bool readEntries(ByteReader& r, QVector<BlobEntry>* entries)
{
    const quint64 count = r.number();
    if (!r.ok() || count > quint64(r.remaining() / (kIdSize + 4))) {
        return false;
    }
    entries->reserve(int(count));
    for (quint64 i = 0; i < count; ++i) {
        BlobEntry e;
        e.id = r.raw(kIdSize);
        const quint8 flags = r.byte();
        if ((flags & 0x7f) > quint8(BlobType::Tree)) {
            return false;
        }
        e.type = BlobType(flags & 0x7f);
        e.compressed = flags & 0x80;
        e.offset = r.number();
        e.storedLength = quint32(r.number());
        e.rawLength = quint32(r.number());
        entries->append(std::move(e));
    }
    return r.ok();
}

} // namespace

PackBuilder::PackBuilder(Sink sink) : m_sink(std::move(sink))
{
    m_record.name = Kel::Streams::randomBytes(16).toHex();
}

void PackBuilder::drain()
{
    if (!m_sink || m_data.isEmpty()) {
        return;
    }
    m_ok = m_ok && m_sink(m_data);
    m_written += m_data.size();
    // Keeps the buffer's room for the next blob.
    m_data.truncate(0);
}

const BlobEntry& PackBuilder::add(BlobCodec& codec, const QByteArray& id, BlobType type,
                                  const char* data, std::size_t length)
{
    if (m_sink && m_data.capacity() < int(length) + Kel::Streams::Cipher::kOverhead) {
        m_data.reserve(int(length) + Kel::Streams::Cipher::kOverhead + 1024);
    }
    BlobEntry e;
    e.id = id;
    e.type = type;
    e.offset = quint64(size());
    e.rawLength = quint32(length);
    e.storedLength = quint32(codec.encodeInto(data, length, id, &m_data, &e.compressed));
    m_record.entries.append(std::move(e));
    drain();
    return m_record.entries.last();
}

QByteArray PackBuilder::finish(BlobCodec& codec)
{
    QByteArray header(kHeaderMagic, 4);
    ByteWriter w(&header);
    writeEntries(w, m_record.entries);
    const QByteArray sealed = codec.seal(header, m_record.name);
    m_data.append(sealed);
    ByteWriter(&m_data).fixed32(quint32(sealed.size()));
    if (m_sink) {
        drain();
        return QByteArray();
    }
    QByteArray out = std::move(m_data);
    m_data = QByteArray();
    return out;
}

bool readPackHeader(const QByteArray& pack, const QByteArray& name, BlobCodec& codec,
                    PackRecord* record)
{
    if (pack.size() < 4) {
        return false;
    }
    const quint32 length = readFixed32(pack.constData() + pack.size() - 4);
    if (length > quint32(pack.size() - 4)) {
        return false;
    }
    QByteArray header;
    if (!codec.open(pack.mid(pack.size() - 4 - int(length), int(length)), name, &header) ||
        !header.startsWith(QByteArray(kHeaderMagic, 4))) {
        return false;
    }
    ByteReader r(header.constData() + 4, header.size() - 4);
    record->name = name;
    record->entries.clear();
    return readEntries(r, &record->entries) && r.atEnd();
}

QByteArray encodeIndex(const QVector<PackRecord>& packs, BlobCodec& codec,
                       const QByteArray& associated)
{
    QByteArray out(kIndexMagic, 4);
    ByteWriter w(&out);
    w.number(quint64(packs.size()));
    for (const PackRecord& pack : packs) {
        w.bytes(pack.name);
        writeEntries(w, pack.entries);
    }
    return codec.seal(out, associated);
}

bool decodeIndex(const QByteArray& sealed, BlobCodec& codec, const QByteArray& associated,
                 QVector<PackRecord>* packs)
{
    QByteArray plain;
    if (!codec.open(sealed, associated, &plain) || !plain.startsWith(QByteArray(kIndexMagic, 4))) {
        return false;
    }
    ByteReader r(plain.constData() + 4, plain.size() - 4);
    const quint64 count = r.number();
    if (!r.ok() || count > quint64(r.remaining())) {
        return false;
    }
    packs->clear();
    for (quint64 i = 0; i < count; ++i) {
        PackRecord pack;
        pack.name = r.bytes();
        if (pack.name.size() != 32 || !readEntries(r, &pack.entries)) {
            return false;
        }
        packs->append(std::move(pack));
    }
    return r.ok() && r.atEnd();
}

} // namespace Kel::Archive
