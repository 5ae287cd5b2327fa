#include "kelBackupFormat/BlockMap.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Hash.h"

#include <QBuffer>
#include <algorithm>

namespace Kel::Archive {

namespace {

constexpr char kMapMark[] = "ORB1";
// The map stream's length (8 bytes) and the mark.
constexpr int kFooterSize = 12;
constexpr int kHashSize = Kel::Streams::IdHasher::kSize;

QString mapName(const QString& name)
{
    return name + QStringLiteral("#blocks");
}

} // namespace

QByteArray BlockMap::encode() const
{
    QByteArray out;
    out.reserve(int(blocks.size()) * (kHashSize + 4) + 8);
    ByteWriter w(&out);
    w.number(blocks.size());
    for (const Block& block : blocks) {
        w.number(block.length);
        w.raw(block.hash);
    }
    return out;
}

bool BlockMap::decode(const QByteArray& bytes, BlockMap* map)
{
    ByteReader r(bytes);
    const quint64 count = r.number();
    // Each block takes more than a hash's bytes, so a count larger than that
    // allows is damage, not a reason to reserve memory.
    if (!r.ok() || count > quint64(r.remaining() / kHashSize)) {
        return false;
    }
    map->blocks.clear();
    map->blocks.reserve(count);
    for (quint64 i = 0; i < count && r.ok(); ++i) {
        Block block;
        block.length = r.number();
        block.hash = r.raw(kHashSize);
        map->blocks.push_back(std::move(block));
    }
    return r.ok() && r.atEnd();
}

void Recipe::add(Source source, quint64 offset, quint64 length)
{
    if (!ranges.empty()) {
        Range& last = ranges.back();
        if (last.source == source && last.offset + last.length == offset) {
            last.length += length;
            return;
        }
    }
    ranges.push_back({source, offset, length});
}

quint64 Recipe::size() const
{
    quint64 total = 0;
    for (const Range& range : ranges) {
        total += range.length;
    }
    return total;
}

QByteArray Recipe::encode() const
{
    QByteArray out;
    ByteWriter w(&out);
    w.number(ranges.size());
    for (const Range& range : ranges) {
        w.byte(quint8(range.source));
        w.number(range.offset);
        w.number(range.length);
    }
    return out;
}

bool Recipe::decode(const QByteArray& bytes, Recipe* recipe)
{
    ByteReader r(bytes);
    const quint64 count = r.number();
    if (!r.ok() || count > quint64(r.remaining() / 3)) {
        return false;
    }
    recipe->ranges.clear();
    recipe->ranges.reserve(count);
    for (quint64 i = 0; i < count && r.ok(); ++i) {
        const quint8 source = r.byte();
        Range range{Source(source), r.number(), 0};
        range.length = r.number();
        if (source > quint8(Source::New) || range.length == 0 ||
            range.offset + range.length < range.offset) {
            return false;
        }
        recipe->ranges.push_back(range);
    }
    return r.ok() && r.atEnd();
}

bool appendBlockMap(QIODevice* sink, const KeySet& keys, const QString& name, const BlockMap& map)
{
    const qint64 start = sink->pos();
    if (!PieceWriter(sink, keys, false, mapName(name), QByteArray()).write(map.encode(), true)) {
        return false;
    }
    const quint64 length = quint64(sink->pos() - start);
    QByteArray footer;
    ByteWriter w(&footer);
    w.fixed32(quint32(length));
    w.fixed32(quint32(length >> 32));
    w.raw(QByteArray(kMapMark, 4));
    return sink->write(footer) == footer.size();
}

TailState readBlockMap(const QByteArray& tail, const KeySet& keys, const QString& name,
                       BlockMap* map, qint64* needed)
{
    if (tail.size() < kFooterSize || !tail.endsWith(QByteArray(kMapMark, 4))) {
        return TailState::Absent;
    }
    const char* footer = tail.constData() + tail.size() - kFooterSize;
    const quint64 length = quint64(readFixed32(footer)) | quint64(readFixed32(footer + 4)) << 32;
    if (length > (1u << 30)) {
        return TailState::Absent;
    }
    if (length + kFooterSize > quint64(tail.size())) {
        *needed = qint64(length) + kFooterSize;
        return TailState::More;
    }
    QByteArray stream = tail.mid(int(quint64(tail.size()) - kFooterSize - length), int(length));
    QBuffer source(&stream);
    source.open(QIODevice::ReadOnly);
    PieceReader reader(&source, keys, mapName(name));
    QByteArray bytes;
    const bool ok = reader.start(&bytes) && reader.next(&bytes) && reader.atEnd() &&
                    BlockMap::decode(bytes, map);
    return ok ? TailState::Found : TailState::Absent;
}

PieceIndex::PieceIndex(QIODevice* source, const KeySet& keys, const QString& name)
    : m_source(source), m_reader(source, keys, name)
{
}

PieceIndex::~PieceIndex() = default;

bool PieceIndex::open()
{
    QByteArray clear;
    if (!m_reader.start(&clear)) {
        return false;
    }
    quint64 offset = 0;
    qint64 position = m_source->pos();
    while (!m_reader.atEnd()) {
        quint64 length = 0;
        if (!m_reader.skip(&length)) {
            return false;
        }
        m_pieces.push_back({position, offset, length});
        offset += length;
        position = m_source->pos();
    }
    return true;
}

quint64 PieceIndex::size(int pieces) const
{
    quint64 total = 0;
    for (int i = 0; i < pieces && i < count(); ++i) {
        total += m_pieces[std::size_t(i)].length;
    }
    return total;
}

bool PieceIndex::piece(int index, QByteArray* data)
{
    if (index < 0 || index >= count()) {
        return false;
    }
    if (index == m_cached) {
        *data = m_data;
        return true;
    }
    m_reader.seek(quint64(index), m_pieces[std::size_t(index)].position);
    if (!m_reader.next(data) || quint64(data->size()) != m_pieces[std::size_t(index)].length) {
        return false;
    }
    return true;
}

bool PieceIndex::read(quint64 offset, quint64 length,
                      const std::function<bool(const char*, std::size_t)>& sink)
{
    if (length == 0) {
        return true;
    }
    auto it = std::upper_bound(m_pieces.begin(), m_pieces.end(), offset,
                               [](quint64 value, const Piece& p) { return value < p.offset; });
    if (it == m_pieces.begin()) {
        return false;
    }
    int index = int(it - m_pieces.begin()) - 1;
    while (length > 0) {
        if (index >= count()) {
            return false;
        }
        if (index != m_cached) {
            m_cached = -1;
            if (!piece(index, &m_data)) {
                return false;
            }
            m_cached = index;
        }
        const Piece& p = m_pieces[std::size_t(index)];
        const quint64 from = offset - p.offset;
        if (from > p.length) {
            return false;
        }
        const quint64 n = std::min(length, p.length - from);
        if (n > 0 && !sink(m_data.constData() + from, std::size_t(n))) {
            return false;
        }
        offset += n;
        length -= n;
        ++index;
    }
    return true;
}

} // namespace Kel::Archive
