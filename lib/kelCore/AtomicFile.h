#pragma once

#include <QByteArray>
#include <QString>

namespace Kel::Core {

// Writes a whole file or nothing: the data goes to a temporary file beside the
// target, is flushed to disk, and then renamed over it. A crash at any moment
// leaves either the old file or the new one, never a mixture.
class AtomicFile
{
public:
    // Returns an empty string on success, otherwise the reason for failure.
    static QString write(const QString& path, const QByteArray& data, int permissions = 0600);

    // For many files written in one go: the same temporary file and rename,
    // without a flush per file. The caller makes the batch durable with
    // syncFileSystem() before it reports success; until then a crash may
    // leave some of the batch's files empty, never an older file damaged.
    static QString writeUnflushed(const QString& path, const QByteArray& data,
                                  int permissions = 0600);
    // Flushes the file system that holds the folder to disk.
    static QString syncFileSystem(const QString& folder);
};

} // namespace Kel::Core
