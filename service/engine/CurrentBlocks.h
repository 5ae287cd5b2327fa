#pragma once

#include "kelBackupFormat/BlockMap.h"
#include "service/engine/CurrentStore.h"
#include "service/engine/RestoreTarget.h"

#include <atomic>
#include <functional>

namespace Orv::Engine {

// Block-level backup of the current format: a large file is read through the
// content-defined chunker, so that an insertion moves no later block, and is
// stored either whole with its block map or as the blocks its last full
// version lacks (see kelBackupFormat/BlockMap.h).

// Smaller files are stored whole: with blocks of about 1 MiB, a delta of a
// file of one or two blocks can hardly be half its size.
constexpr quint64 kBlockLevelMinimum = 2 * 1024 * 1024;

// The full version a delta builds on: its run and its block map.
struct BlockBase
{
    QString run;
    Kel::Archive::BlockMap map;
};

// The block map of a stored full version, from the object's end; false when
// the version has none (stored whole without block level, damaged, gone).
bool fetchBlockMap(Kel::Cloud::Backend& backend, const QString& name,
                   const Kel::Archive::KeySet& keys, Kel::Archive::BlockMap* map);

// Writes one version of a file at block level into a sink, for one thread.
class BlockVersionWriter
{
public:
    enum class Result
    {
        Stored,
        NotWorthIt, // the delta would be more than half the file: store it whole
        ReadFailed,
        WriteFailed,
    };

    BlockVersionWriter(const Kel::Archive::KeySet& keys, bool compress);

    // Reads the file from where fd stands to its end. Without a base, the
    // version is whole and carries its block map; with one, it is a delta
    // and the entry names the base. The entry is the one stored last in the
    // object; its size becomes what was read.
    Result write(int fd, const QString& name, const BlockBase* base, QIODevice* sink,
                 Kel::Archive::ManifestEntry* entry, std::atomic<quint64>* bytesRead);
    // Why a read failed (an errno value).
    int readError() const { return m_readError; }

private:
    qint64 fill(int fd, std::atomic<quint64>* bytesRead);

    const Kel::Archive::KeySet& m_keys;
    bool m_compress;
    QByteArray m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    bool m_eof = false;
    int m_readError = 0;
};

// Rebuilds a delta version from its own object and its base's, fetched
// whole into temporary files and read a piece at a time. The file is opened
// only once both objects are found whole. Empty when the file is in place,
// else why not, naming the version or its base.
using OpenFile = std::function<std::unique_ptr<RestoreTarget::FileWriter>(QString* error)>;
QString restoreDelta(Kel::Cloud::Backend& backend, const CurrentStore& store,
                     const Kel::Archive::ManifestEntry& entry, const QByteArray& owner,
                     const OpenFile& open);

} // namespace Orv::Engine
