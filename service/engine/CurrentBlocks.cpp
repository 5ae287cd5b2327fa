#include "service/engine/CurrentBlocks.h"

#include "kelStreams/Chunker.h"
#include "kelStreams/Hash.h"

#include <QBuffer>
#include <QDir>
#include <QHash>
#include <QTemporaryFile>
#include <cerrno>
#include <cstring>
#include <unistd.h>

namespace Orv::Engine {

using Kel::Archive::BlockMap;
using Kel::Archive::ManifestEntry;
using Kel::Archive::PieceIndex;
using Kel::Archive::Recipe;
using Kel::Streams::Chunker;

namespace {

// Most maps fit in one ranged read of the object's end.
constexpr qint64 kTailRead = 64 * 1024;
// The chunker needs kMaxSize bytes ahead of a cut; reads come in pieces.
constexpr std::size_t kReadBuffer = Chunker::kMaxSize + std::size_t(kCurrentPiece);

} // namespace

bool fetchBlockMap(Kel::Cloud::Backend& backend, const QString& name,
                   const Kel::Archive::KeySet& keys, BlockMap* map)
{
    Kel::Cloud::ObjectInfo info;
    if (!backend.stat(name, &info).ok() || info.size <= 0) {
        return false;
    }
    qint64 want = std::min(info.size, kTailRead);
    // Twice at most: the first read tells how long a larger map is.
    for (int attempt = 0; attempt < 2; ++attempt) {
        QByteArray tail;
        if (!backend.read(name, info.size - want, want, &tail).ok() || tail.size() != want) {
            return false;
        }
        qint64 needed = 0;
        switch (Kel::Archive::readBlockMap(tail, keys, name, map, &needed)) {
        case Kel::Archive::TailState::Found:
            return true;
        case Kel::Archive::TailState::Absent:
            return false;
        case Kel::Archive::TailState::More:
            if (needed > info.size) {
                return false;
            }
            want = needed;
            break;
        }
    }
    return false;
}

BlockVersionWriter::BlockVersionWriter(const Kel::Archive::KeySet& keys, bool compress)
    : m_keys(keys), m_compress(compress)
{
}

// Tops the buffer up to kReadBuffer bytes, keeping what is not cut yet.
qint64 BlockVersionWriter::fill(int fd, std::atomic<quint64>* bytesRead)
{
    char* data = m_buffer.data();
    std::memmove(data, data + m_begin, m_end - m_begin);
    m_end -= m_begin;
    m_begin = 0;
    const std::size_t wanted = kReadBuffer - m_end;
    std::size_t got = 0;
    while (got < wanted) {
        const ssize_t n = ::read(fd, data + m_end + got, wanted - got);
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            m_readError = errno;
            return -1;
        }
        if (n == 0) {
            m_eof = true;
            break;
        }
        got += std::size_t(n);
    }
    m_end += got;
    *bytesRead += got;
    return qint64(got);
}

BlockVersionWriter::Result BlockVersionWriter::write(int fd, const QString& name,
                                                     const BlockBase* base, QIODevice* sink,
                                                     ManifestEntry* entry,
                                                     std::atomic<quint64>* bytesRead)
{
    // Where each block of the base starts in its content.
    QHash<QByteArray, quint64> known;
    if (base) {
        quint64 offset = 0;
        for (const BlockMap::Block& block : base->map.blocks) {
            if (!known.contains(block.hash)) {
                known.insert(block.hash, offset);
            }
            offset += block.length;
        }
    }
    m_buffer.resize(int(kReadBuffer));
    m_begin = m_end = 0;
    m_eof = false;
    const Chunker chunker(m_keys.chunkerSeed);
    Kel::Streams::IdHasher hasher(m_keys.idKey);
    Kel::Archive::PieceWriter writer(sink, m_keys, m_compress, name, QByteArray());
    BlockMap map;
    Recipe recipe;
    QByteArray piece;
    piece.reserve(int(kCurrentPiece));
    quint64 size = 0;
    quint64 fresh = 0;
    bool written = true;
    // New bytes go out in pieces of the usual size, whatever the blocks.
    const auto store = [&](const char* data, std::size_t n) {
        while (n > 0) {
            const std::size_t take = std::min(n, std::size_t(kCurrentPiece) - piece.size());
            piece.append(data, int(take));
            data += take;
            n -= take;
            if (piece.size() == kCurrentPiece) {
                written = written && writer.write(piece, false);
                piece.clear();
            }
        }
    };
    for (;;) {
        if (!m_eof && m_end - m_begin < Chunker::kMaxSize && fill(fd, bytesRead) < 0) {
            return Result::ReadFailed;
        }
        if (m_begin == m_end) {
            break;
        }
        const auto* data = reinterpret_cast<const uchar*>(m_buffer.constData()) + m_begin;
        const std::size_t n = chunker.cut(data, m_end - m_begin);
        const char* block = m_buffer.constData() + m_begin;
        const QByteArray hash = hasher.id(block, n);
        m_begin += n;
        size += n;
        if (!base) {
            map.blocks.push_back({n, hash});
            store(block, n);
            continue;
        }
        const auto found = known.constFind(hash);
        if (found != known.cend()) {
            recipe.add(Recipe::Source::Base, *found, n);
            continue;
        }
        recipe.add(Recipe::Source::New, fresh, n);
        fresh += n;
        if (fresh > entry->node.size / 2) {
            return Result::NotWorthIt;
        }
        store(block, n);
    }
    if (!piece.isEmpty()) {
        written = written && writer.write(piece, false);
    }
    entry->node.size = size;
    entry->base = base ? base->run : QString();
    if (base) {
        written = written && writer.write(recipe.encode(), false);
    }
    written = written && writer.write(entry->encode(), true);
    if (!base) {
        written = written && Kel::Archive::appendBlockMap(sink, m_keys, name, map);
    }
    return written ? Result::Stored : Result::WriteFailed;
}

namespace {

// One version object fetched whole, in memory when small.
class Fetched
{
public:
    explicit Fetched(quint64 size) : m_file(QDir::tempPath() + QStringLiteral("/orv-cbf-XXXXXX"))
    {
        if (qint64(size) > kCurrentInMemory && m_file.open()) {
            m_device = &m_file;
        } else {
            m_memory.open(QIODevice::ReadWrite);
        }
    }

    // Empty when fetched, else why not, told of what.
    QString fetch(Kel::Cloud::Backend& backend, const QString& name, const QString& what)
    {
        const Orv::Repository::Status status = backend.read(name, 0, -1, m_device);
        m_device->seek(0);
        if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            return QStringLiteral("%1 is missing from the storage").arg(what);
        }
        return status.ok() ? QString() : status.message;
    }

    QIODevice* device() { return m_device; }

private:
    QBuffer m_memory;
    QTemporaryFile m_file;
    QIODevice* m_device = &m_memory;
};

// The entry stored last in an object, if it is the one expected.
bool storedEntry(PieceIndex& index, const QByteArray& owner, const QString& version,
                 const QString& base, ManifestEntry* entry)
{
    QByteArray bytes;
    return index.piece(index.count() - 1, &bytes) && ManifestEntry::decode(bytes, entry) &&
           entry->path == owner && entry->version == version && entry->base == base;
}

} // namespace

QString restoreDelta(Kel::Cloud::Backend& backend, const CurrentStore& store,
                     const ManifestEntry& entry, const QByteArray& owner, const OpenFile& open)
{
    const QString version = QStringLiteral("its version %1").arg(entry.version);
    const QString baseVersion = QStringLiteral("its base version %1").arg(entry.base);
    const QString name = store.versionName(owner, entry.version);
    const QString baseName = store.versionName(owner, entry.base);
    const QString damaged = version + QStringLiteral(" is damaged");
    const QString baseDamaged = baseVersion + QStringLiteral(" is damaged");

    Fetched delta(entry.node.size);
    QString why = delta.fetch(backend, name, version);
    if (!why.isEmpty()) {
        return why;
    }
    PieceIndex pieces(delta.device(), store.keys(), name);
    ManifestEntry stored;
    QByteArray bytes;
    Recipe recipe;
    if (!pieces.open() || pieces.count() < 2 ||
        !storedEntry(pieces, owner, entry.version, entry.base, &stored) ||
        !pieces.piece(pieces.count() - 2, &bytes) || !Recipe::decode(bytes, &recipe) ||
        recipe.size() != stored.node.size) {
        return damaged;
    }

    Fetched full(entry.node.size);
    why = full.fetch(backend, baseName, baseVersion);
    if (!why.isEmpty()) {
        return why;
    }
    PieceIndex basePieces(full.device(), store.keys(), baseName);
    ManifestEntry baseEntry;
    if (!basePieces.open() || basePieces.count() < 1 ||
        !storedEntry(basePieces, owner, entry.base, QString(), &baseEntry)) {
        return baseDamaged;
    }
    // Ranges that reach past their content are damage, found before the
    // file is opened.
    const quint64 newBytes = pieces.size(pieces.count() - 2);
    const quint64 baseBytes = basePieces.size(basePieces.count() - 1);
    for (const Recipe::Range& range : recipe.ranges) {
        const quint64 limit = range.source == Recipe::Source::New ? newBytes : baseBytes;
        if (range.offset + range.length > limit) {
            return range.source == Recipe::Source::New ? damaged : baseDamaged;
        }
    }

    QString error;
    std::unique_ptr<RestoreTarget::FileWriter> writer = open(&error);
    if (!writer) {
        return error;
    }
    quint64 offset = 0;
    const auto put = [&](const char* data, std::size_t size) {
        if (!writer->write(offset, data, size, &error)) {
            return false;
        }
        offset += size;
        return true;
    };
    for (const Recipe::Range& range : recipe.ranges) {
        const bool fromBase = range.source == Recipe::Source::Base;
        PieceIndex& source = fromBase ? basePieces : pieces;
        if (!source.read(range.offset, range.length, put)) {
            return !error.isEmpty() ? error : fromBase ? baseDamaged : damaged;
        }
    }
    if (!writer->commit(&error)) {
        return error;
    }
    return QString();
}

} // namespace Orv::Engine
