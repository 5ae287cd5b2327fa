#include "service/InstanceLock.h"

#include <QFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

QString systemError(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

QString holderOf(int fd)
{
    char buffer[32] = {};
    const ssize_t length = ::pread(fd, buffer, sizeof(buffer) - 1, 0);
    const QByteArray pid =
        length > 0 ? QByteArray(buffer, static_cast<int>(length)).trimmed() : QByteArray();
    return pid.isEmpty() ? QStringLiteral("another process")
                         : QStringLiteral("pid %1").arg(QString::fromLatin1(pid));
}

} // namespace

InstanceLock::~InstanceLock()
{
    release();
}

bool InstanceLock::acquire(const QString& path, QString* error)
{
    release();
    const QByteArray encoded = QFile::encodeName(path);
    // A holder that is just leaving removes the file after we opened it; we
    // would then lock a file nobody else sees. Try again on the new file.
    for (int attempt = 0; attempt < 5; ++attempt) {
        const int fd = ::open(encoded.constData(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
        if (fd < 0) {
            *error =
                QStringLiteral("cannot open the pid file %1: %2").arg(path, systemError(errno));
            return false;
        }
        if (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
            const int lockError = errno;
            *error = lockError == EWOULDBLOCK
                         ? QStringLiteral("orvd is already running for this instance (%1)")
                               .arg(holderOf(fd))
                         : QStringLiteral("cannot lock the pid file %1: %2")
                               .arg(path, systemError(lockError));
            ::close(fd);
            return false;
        }
        struct stat opened
        {
        };
        struct stat current
        {
        };
        if (::fstat(fd, &opened) != 0 || ::stat(encoded.constData(), &current) != 0 ||
            opened.st_ino != current.st_ino || opened.st_dev != current.st_dev) {
            ::close(fd);
            continue;
        }
        const QByteArray pid = QByteArray::number(static_cast<qint64>(::getpid())) + '\n';
        if (::ftruncate(fd, 0) != 0 ||
            ::pwrite(fd, pid.constData(), static_cast<size_t>(pid.size()), 0) != pid.size()) {
            *error =
                QStringLiteral("cannot write the pid file %1: %2").arg(path, systemError(errno));
            ::close(fd);
            return false;
        }
        m_path = path;
        m_fd = fd;
        return true;
    }
    *error = QStringLiteral("the pid file %1 keeps changing").arg(path);
    return false;
}

void InstanceLock::release()
{
    if (m_fd < 0)
        return;
    // Unlink while still holding the lock, so that a successor never finds
    // our file unlocked.
    ::unlink(QFile::encodeName(m_path).constData());
    ::close(m_fd);
    m_fd = -1;
}

} // namespace Orv::Service
