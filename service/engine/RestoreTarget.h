#pragma once

#include "kelBackupFormat/Node.h"

#include <QByteArray>
#include <QString>
#include <memory>

namespace Orv::Engine {

// Where and how a restore writes: every change it makes to the local file
// system goes through here. Paths given to it are the original absolute paths
// of the restore point; it places them under the destination (or at the
// original place) and refuses any that would leave it.
class RestoreTarget
{
public:
    enum class Existing
    {
        Overwrite,    // replace what is there
        SkipExisting, // leave every existing file as it is
        OnlyNewer,    // replace only files older than the backed-up version
    };

    struct Options
    {
        QByteArray destination; // absolute; empty restores to the original place
        Existing existing = Existing::Overwrite;
        bool restoreOwners = true; // only takes effect when running as root
    };

    explicit RestoreTarget(const Options& options);
    ~RestoreTarget();

    // The local path for an original absolute path, or empty with the reason
    // when the path is not absolute or has an empty, "." or ".." part (data
    // from storage that tries to climb out of the destination).
    QByteArray place(const QByteArray& originalPath, QString* error) const;

    // Whether a non-folder entry is to be written at the place, by the
    // Existing rule (a missing entry is always written).
    bool wanted(const QByteArray& place, const Kel::Archive::Node& node) const;

    // Creates the folder and missing parents (parents made here get mode 0700
    // until their own metadata arrives). Metadata is set by finishDirectory,
    // which the restorer calls after the folder's content, so that writing
    // the content does not change the folder's times.
    bool makeDirectory(const QByteArray& place, QString* error);
    bool finishDirectory(const QByteArray& place, const Kel::Archive::Node& node, QString* error);

    bool makeSymlink(const QByteArray& place, const Kel::Archive::Node& node, QString* error);
    bool makeSpecial(const QByteArray& place, const Kel::Archive::Node& node, QString* error);
    // A hard link at place to a file this restore already wrote at existing.
    bool makeHardLink(const QByteArray& place, const QByteArray& existing, QString* error);

    // One file being restored. Content arrives in any order, as pieces at
    // offsets; it goes to a hidden temporary file beside the place, which
    // commit() sizes, gives its metadata and renames over the place, so the
    // place holds the old file or the whole new one, never a part. Runs of
    // zero bytes become holes. Destroying an uncommitted writer removes the
    // temporary file.
    class FileWriter
    {
    public:
        ~FileWriter();
        bool write(quint64 offset, const char* data, std::size_t size, QString* error);
        bool commit(QString* error);

    private:
        friend class RestoreTarget;
        FileWriter() = default;
        struct Private;
        std::unique_ptr<Private> d;
    };
    // Null with the reason when the temporary file cannot be made.
    std::unique_ptr<FileWriter> openFile(const QByteArray& place, const Kel::Archive::Node& node,
                                         QString* error);

private:
    struct Private;
    std::unique_ptr<Private> d;
};

} // namespace Orv::Engine
