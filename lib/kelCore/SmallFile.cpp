#include "kelCore/SmallFile.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kel::Core {

SmallFile::Outcome SmallFile::read(const QString& path, qint64 limit, QByteArray* contents,
                                   QString* reason)
{
    // Non-blocking, so that opening a pipe nobody writes to does not hang;
    // the type is checked on what was opened, not on the name.
    const int fd = ::open(QFile::encodeName(path).constData(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd < 0) {
        if (reason)
            *reason = QString::fromLocal8Bit(std::strerror(errno));
        return Outcome::CannotOpen;
    }
    struct stat status
    {
    };
    Outcome outcome = Outcome::Read;
    if (::fstat(fd, &status) != 0 || !S_ISREG(status.st_mode)) {
        outcome = Outcome::NotRegular;
    } else if (status.st_size > limit) {
        outcome = Outcome::TooLarge;
    } else {
        // The size may change under us: read at most one byte beyond the limit.
        QByteArray data(static_cast<int>(limit) + 1, Qt::Uninitialized);
        qint64 total = 0;
        for (;;) {
            const ssize_t count =
                ::read(fd, data.data() + total, static_cast<size_t>(data.size() - total));
            if (count < 0 && errno == EINTR)
                continue;
            if (count < 0) {
                if (reason)
                    *reason = QString::fromLocal8Bit(std::strerror(errno));
                outcome = Outcome::CannotOpen;
                break;
            }
            total += count;
            if (count == 0 || total == data.size())
                break;
        }
        if (outcome == Outcome::Read && total > limit)
            outcome = Outcome::TooLarge;
        if (outcome == Outcome::Read) {
            data.truncate(static_cast<int>(total));
            *contents = data;
        }
    }
    ::close(fd);
    return outcome;
}

} // namespace Kel::Core
