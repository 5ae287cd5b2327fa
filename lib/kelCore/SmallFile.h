#pragma once

#include <QByteArray>
#include <QString>

namespace Kel::Core {

// Reads a file that an administrator names for something small (a key, a
// certificate, a configuration to import). Only a regular file is read, and
// only up to a size no real one reaches, so that a device, a pipe or a folder
// given by mistake is refused instead of read without end or taken as empty.
class SmallFile
{
public:
    enum class Outcome
    {
        Read,
        CannotOpen,
        NotRegular,
        TooLarge
    };

    // On Read, *contents holds the whole file; on CannotOpen, *reason (when
    // given) holds the system's words.
    static Outcome read(const QString& path, qint64 limit, QByteArray* contents,
                        QString* reason = nullptr);
};

} // namespace Kel::Core
