#include "kelCore/FileLock.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QThread>
#include <cerrno>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace Kel::Core {

namespace {

constexpr int kRetryPauseMs = 5;

} // namespace

FileLock::FileLock(const QString& lockPath) : m_path(lockPath) {}

FileLock::~FileLock()
{
    release();
}

bool FileLock::acquire(int timeoutMs)
{
    if (m_fd >= 0)
        return true;
    QDir().mkpath(QFileInfo(m_path).absolutePath());
    const QByteArray path = QFile::encodeName(m_path);
    int fd = ::open(path.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    // A lock file left read-only by another account still serves: flock needs
    // no write access.
    if (fd < 0)
        fd = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    if (fd < 0)
        return false;
    const QDeadlineTimer deadline(timeoutMs);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if ((errno != EWOULDBLOCK && errno != EINTR) || deadline.hasExpired()) {
            ::close(fd);
            return false;
        }
        QThread::msleep(kRetryPauseMs);
    }
    m_fd = fd;
    return true;
}

void FileLock::release()
{
    if (m_fd < 0)
        return;
    ::flock(m_fd, LOCK_UN);
    ::close(m_fd);
    m_fd = -1;
}

} // namespace Kel::Core
