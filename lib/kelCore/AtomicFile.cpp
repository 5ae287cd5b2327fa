#include "kelCore/AtomicFile.h"

#include <QDir>
#include <QFileInfo>
#include <QSaveFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Kel::Core {

QString AtomicFile::write(const QString& path, const QByteArray& data, int permissions)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.absolutePath()))
        return QStringLiteral("cannot create folder %1").arg(info.absolutePath());
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    QFileDevice::Permissions perms;
    if (permissions & 0400)
        perms |= QFileDevice::ReadOwner;
    if (permissions & 0200)
        perms |= QFileDevice::WriteOwner;
    if (permissions & 0040)
        perms |= QFileDevice::ReadGroup;
    if (permissions & 0004)
        perms |= QFileDevice::ReadOther;
    file.setPermissions(perms);
    if (file.write(data) != data.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        return reason;
    }
    if (!file.commit())
        return file.errorString();
    return {};
}

QString AtomicFile::writeUnflushed(const QString& path, const QByteArray& data, int permissions)
{
    const QFileInfo info(path);
    if (!QDir().mkpath(info.absolutePath()))
        return QStringLiteral("cannot create folder %1").arg(info.absolutePath());
    const QByteArray target = QFile::encodeName(path);
    QByteArray temporary = QFile::encodeName(info.absolutePath() + QStringLiteral("/.") +
                                             info.fileName() + QStringLiteral(".XXXXXX"));
    const int fd = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (fd < 0)
        return QStringLiteral("cannot create a file beside %1: %2")
            .arg(path, QString::fromLocal8Bit(std::strerror(errno)));
    const auto fail = [&](const char* what) {
        const QString reason =
            QStringLiteral("cannot %1 %2: %3")
                .arg(QLatin1String(what), path, QString::fromLocal8Bit(std::strerror(errno)));
        ::close(fd);
        ::unlink(temporary.constData());
        return reason;
    };
    if (::fchmod(fd, mode_t(permissions)) != 0)
        return fail("set the mode of");
    qint64 written = 0;
    while (written < data.size()) {
        const ssize_t count =
            ::write(fd, data.constData() + written, std::size_t(data.size() - written));
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return fail("write");
        written += count;
    }
    if (::close(fd) != 0) {
        const QString reason = QStringLiteral("cannot write %1: %2")
                                   .arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        ::unlink(temporary.constData());
        return reason;
    }
    if (::rename(temporary.constData(), target.constData()) != 0) {
        const QString reason = QStringLiteral("cannot rename into %1: %2")
                                   .arg(path, QString::fromLocal8Bit(std::strerror(errno)));
        ::unlink(temporary.constData());
        return reason;
    }
    return {};
}

QString AtomicFile::syncFileSystem(const QString& folder)
{
    const int fd =
        ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0)
        return QStringLiteral("cannot open %1: %2")
            .arg(folder, QString::fromLocal8Bit(std::strerror(errno)));
    const int result = ::syncfs(fd);
    const int error = errno;
    ::close(fd);
    if (result != 0)
        return QStringLiteral("cannot flush %1 to disk: %2")
            .arg(folder, QString::fromLocal8Bit(std::strerror(error)));
    return {};
}

} // namespace Kel::Core
