#pragma once

#include "kelBackupFormat/Blob.h"
#include "kelBackupFormat/Node.h"
#include "kelBackupFormat/Records.h"

#include <QByteArray>
#include <QDateTime>
#include <QString>
#include <memory>

class QIODevice;

namespace Kel::Streams {
class Compressor;
class Cipher;
} // namespace Kel::Streams

namespace Kel::Archive {

// Object names of the current format, below the account's prefix. Every
// file version is an object of its own, found from the file's path alone:
//   cbf/<plan>/keys                          the plan's keys (a generation
//                                            record sealed under the password)
//   cbf/<plan>/manifests/<run>               a run's commit: every entry then,
//                                            or what changed since the run
//                                            before (ManifestHeader::base)
//   cbf/<plan>/files/<path key>/@<run>       one version of one file
//   cbf/<plan>/retention/<run>               the versions the retention of
//                                            that run removed, written
//                                            before they are deleted
//   cbf/<plan>/plan                          the plan's settings, no password
// A version object holds the file's content in pieces, then, as its last
// piece, its manifest entry (path, metadata as read, version), so that it
// describes itself. Symlinks, folders and special files have no content:
// they live in the manifests only. At block level a version may instead be
// a delta on a full version, and a full version carries its block map after
// its last piece (BlockMap.h).
// Without encryption the path key is "p/" and the path's parts, escaped;
// with encryption it is "e/" and, for each part, a keyed digest of the path
// up to that part: either way a listing of the storage shows the source
// tree's shape, and with encryption no name. Paths too long for an object
// name take a flat form, "h/", two hex digits and a digest of the whole path
// (keyed when encrypting).
class CurrentLayout
{
public:
    explicit CurrentLayout(const QString& prefix);

    // The folder of every plan: "<prefix>/cbf/".
    QString root() const { return m_root; }
    // One small object per plan, so that finding the plans of a storage lists
    // a handful of names instead of every version of every plan (listings
    // cannot stop at a folder).
    QString planMarkers() const { return m_root + QStringLiteral("plans/"); }
    QString planMarker(const QString& plan) const { return planMarkers() + plan; }
    QString plan(const QString& plan) const { return m_root + plan + '/'; }
    QString keys(const QString& plan) const { return this->plan(plan) + QStringLiteral("keys"); }
    QString manifests(const QString& plan) const
    {
        return this->plan(plan) + QStringLiteral("manifests/");
    }
    QString manifest(const QString& plan, const QString& run) const
    {
        return manifests(plan) + run;
    }
    QString versions(const QString& plan, const QString& pathKey) const
    {
        return this->plan(plan) + QStringLiteral("files/") + pathKey + '/';
    }
    QString version(const QString& plan, const QString& pathKey, const QString& run) const
    {
        return versions(plan, pathKey) + '@' + run;
    }
    QString retentions(const QString& plan) const
    {
        return this->plan(plan) + QStringLiteral("retention/");
    }
    QString retention(const QString& plan, const QString& run) const
    {
        return retentions(plan) + run;
    }
    QString savedPlan(const QString& plan) const
    {
        return this->plan(plan) + QStringLiteral("plan");
    }

    // The path key of an absolute path; idKey is the plan's id key (empty
    // without encryption).
    static QString pathKey(const QByteArray& path, const QByteArray& idKey);
    // The time a run id (Layout::newId) was made at; invalid for other names.
    static QDateTime runTime(const QString& run);

private:
    QString m_root;
};

// One entry of a manifest: the path, its metadata (the node's name is the
// last part of the path), and for files the version that holds the content.
// A file that shares its inode with an entry before it names that entry in
// hardLinkTo and shares its version. A version stored as the blocks that
// changed names in base the run of the full version it builds on: that
// version must be kept as long as this one is.
struct ManifestEntry
{
    QByteArray path;
    Node node;
    QString version;
    QByteArray hardLinkTo;
    QString base;

    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, ManifestEntry* entry);
};

// The clear part of a manifest: what a listing shows without the password,
// on a machine that has never seen the plan. Manifests written before the
// plan's name and the full flag were kept here decode with an empty name and
// full unset.
struct ManifestHeader
{
    QString run;
    // Empty for a manifest that lists every entry; else the run whose
    // manifest this one changes: it lists only the entries that are new or
    // changed since that run, and the paths that are gone (a delta).
    QString base;
    QString planName;
    // A run that stored every file whole (the first one, or forced full).
    bool full = false;
    QDateTime start;
    QDateTime end;
    PointStatus status = PointStatus::Success;
    int warnings = 0;
    int errors = 0;

    QByteArray encode() const;
    static bool decode(const QByteArray& bytes, ManifestHeader* header);
};

// The body of a stored object of the current format: a clear header, then
// records in pieces, each compressed when worth it and sealed when
// encrypting, bound to the object's name and its place in it, the last one
// marked, so that a piece cannot be moved, dropped or cut off unseen. Without
// encryption each piece carries a digest instead. Pieces are written and read
// one at a time: memory does not grow with the object.
class PieceWriter
{
public:
    PieceWriter(QIODevice* sink, const KeySet& keys, bool compress, const QString& name,
                const QByteArray& clear);
    ~PieceWriter();

    bool write(const char* data, std::size_t size, bool last);
    bool write(const QByteArray& data, bool last)
    {
        return write(data.constData(), std::size_t(data.size()), last);
    }

private:
    QIODevice* m_sink;
    BlobCodec m_codec;
    std::unique_ptr<Kel::Streams::Compressor> m_compressor;
    QString m_name;
    quint64 m_index = 0;
    QByteArray m_buffer;
    bool m_encrypted = false;
};

class PieceReader
{
public:
    PieceReader(QIODevice* source, const KeySet& keys, const QString& name);
    ~PieceReader();

    // The clear header; false when the bytes are not an object of this kind.
    bool start(QByteArray* clear);
    // The next piece; false at a damaged piece or past the last one.
    bool next(QByteArray* data);
    bool atEnd() const { return m_last; }

    // Passes over the next piece without opening it, so that an object at
    // hand whole can be indexed from its piece headers alone: its length as
    // written and whether it is the last. False past the last piece or at a
    // header that cannot be read.
    bool skip(quint64* rawLength);
    // Goes to a piece found by skip(): its place in the object and where
    // its header starts. next() reads it.
    void seek(quint64 index, qint64 position);

private:
    QIODevice* m_source;
    BlobCodec m_codec;
    QString m_name;
    quint64 m_index = 0;
    bool m_last = false;
    bool m_encrypted = false;
};

// What a record of a delta manifest says of its path.
enum class DeltaRecord : quint8
{
    Entry = 0,   // the path's entry in this run
    Removed = 1, // the base had the path, this run has not
};

// Reads only the clear header of a manifest object.
bool readManifestHeader(const QByteArray& bytes, ManifestHeader* header);

} // namespace Kel::Archive
