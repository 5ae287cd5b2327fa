#pragma once

#include "orvCommon/SymlinkBackupMode.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QStringList>
#include <sys/stat.h>

namespace Orv::Engine {

// What a backup takes from the file system, as the plan and the settings say.
struct WalkOptions
{
    enum class FileMaskType
    {
        BackupOnly, // only files whose names match one of the masks
        Skip,       // every file but those whose names match one of the masks
        All,        // the masks are not used
    };

    QList<QByteArray> sources;   // absolute paths
    QList<QByteArray> excluded;  // absolute paths: these and everything below them
    QStringList skipFolderMasks; // wildcards on folder names ("cache", "*.tmp")
    QStringList fileMasks;       // wildcards on file names
    FileMaskType fileMaskType = FileMaskType::All;
    bool skipHidden = false; // names starting with "."
    bool skipInUse = false;  // files open for writing by another process
    Orv::Common::SymlinkBackupMode::Mode symlinkMode = Orv::Common::SymlinkBackupMode::SymlinkOnly;
};

// One entry the walk reports.
struct WalkEntry
{
    QByteArray path;       // absolute, as the file system names it
    QByteArray name;       // the last part of path
    struct stat st;        // lstat, or stat of the target where links are followed
    QByteArray linkTarget; // symlinks kept as links
};

// Receives the walk as it goes. Inside one root, calls nest: a folder's
// enterDirectory, then its entries in byte order of their names, then its
// leaveDirectory. The visitor decides what to make of empty folders.
class WalkVisitor
{
public:
    virtual ~WalkVisitor() = default;

    // A tree taken as a whole starts at this absolute path. Roots come in
    // the order of the sources, then the roots that links added. A root may
    // contain roots reported before it (a link pointing at a source's parent):
    // then its content supersedes theirs.
    virtual void beginRoot(const WalkEntry& root) = 0;
    virtual void endRoot(const WalkEntry& root) = 0;

    virtual void enterDirectory(const WalkEntry& directory) = 0;
    virtual void leaveDirectory(const WalkEntry& directory) = 0;
    // Regular files, symlinks kept as links, fifos and devices.
    virtual void entry(const WalkEntry& entry) = 0;

    // Something that could not be taken (it cannot be read, a link loops or
    // dangles, a source is missing): the run goes on and counts a warning.
    virtual void problem(const QByteArray& path, const QString& reason) = 0;
    // An entry deleted while the walk went through its folder: a problem
    // too, but one that says the entry is gone rather than out of reach.
    virtual void vanished(const QByteArray& path, const QString& reason) { problem(path, reason); }

    // Asked between entries; true ends the walk early.
    virtual bool stopRequested() const { return false; }
};

// Walks the sources with the filters. Never follows a link unless the mode
// says so, never crosses into the kernel's pseudo file systems (/proc, /sys
// and their kind), and never loops.
class SourceWalker
{
public:
    explicit SourceWalker(const WalkOptions& options);
    ~SourceWalker();

    void walk(WalkVisitor* visitor);

private:
    struct Private;
    Private* d;
};

} // namespace Orv::Engine
