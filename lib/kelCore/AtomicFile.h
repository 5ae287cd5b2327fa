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
};

} // namespace Kel::Core
