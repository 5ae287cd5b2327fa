#pragma once

#include "kelBackupFormat/CurrentFormat.h"

#include <QByteArray>
#include <QString>
#include <functional>
#include <vector>

class QIODevice;

namespace Kel::Archive {

// Block-level versions of the current format. A full version of a large file
// carries its block map: the length and keyed hash of each of its blocks, in
// file order (keyed by the plan's id key when encrypting, so that a stored
// hash confirms nothing about content). A later version of the file may then
// be stored as a delta: the blocks not found in the map, and a recipe that
// rebuilds the file from ranges of the full version and of those blocks.
// Deltas always build on a full version, never on another delta, so that
// restoring one needs two objects at most.
struct BlockMap
{
    struct Block
    {
        quint64 length = 0;
        QByteArray hash;
    };
    std::vector<Block> blocks;

    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, BlockMap* map);
};

// How a delta rebuilds its file: ranges in file order, each from the full
// version's content or from the delta's own new bytes.
struct Recipe
{
    enum class Source : quint8
    {
        Base = 0,
        New = 1,
    };
    struct Range
    {
        Source source = Source::Base;
        quint64 offset = 0;
        quint64 length = 0;
    };
    std::vector<Range> ranges;

    // Appends a range, merged with the last one when it continues it.
    void add(Source source, quint64 offset, quint64 length);
    quint64 size() const;
    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, Recipe* recipe);
};

// The object of a delta is the usual pieces: its new bytes, then the recipe
// in a piece of its own, then the entry as the last piece. The block map of
// a full version follows its last piece, as a piece stream of its own bound
// to the version's name, then the stream's length and a mark, so that a later
// run reads it from the object's end with a ranged read. Readers of the
// content stop at the last piece and never see it.
bool appendBlockMap(QIODevice* sink, const KeySet& keys, const QString& name, const BlockMap& map);

// The block map from the last bytes of a version object (tail ends where the
// object ends). More when the map starts before the tail: *needed says how
// many of the last bytes hold it.
enum class TailState
{
    Found,
    Absent,
    More,
};
TailState readBlockMap(const QByteArray& tail, const KeySet& keys, const QString& name,
                       BlockMap* map, qint64* needed);

// Any range of the content of a version object at hand whole (in a
// temporary file): an index of its pieces from their headers alone, then
// reads that open each piece once while they go forward.
class PieceIndex
{
public:
    PieceIndex(QIODevice* source, const KeySet& keys, const QString& name);
    ~PieceIndex();

    // Indexes the pieces up to the last; false when the object is not whole.
    bool open();
    int count() const { return int(m_pieces.size()); }
    // The bytes of the first pieces together.
    quint64 size(int pieces) const;
    bool piece(int index, QByteArray* data);
    // Calls back with the bytes [offset, offset + length) of the first
    // pieces, in slices; false when a piece is damaged or the sink refuses.
    bool read(quint64 offset, quint64 length,
              const std::function<bool(const char*, std::size_t)>& sink);

private:
    struct Piece
    {
        qint64 position = 0;
        quint64 offset = 0;
        quint64 length = 0;
    };
    QIODevice* m_source;
    PieceReader m_reader;
    std::vector<Piece> m_pieces;
    int m_cached = -1;
    QByteArray m_data;
};

} // namespace Kel::Archive
