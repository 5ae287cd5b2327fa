#include "kelCloud/FileSystemBackend.h"

#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/FolderNames.h"
#include "kelCloud/ObjectName.h"

#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace Kel::Cloud {

namespace {

constexpr qint64 ChunkSize = 1024 * 1024;

Status systemFailure(int error, const QString& what)
{
    const QString message =
        QStringLiteral("%1: %2").arg(what, QString::fromLocal8Bit(std::strerror(error)));
    if (error == EACCES || error == EPERM || error == EROFS)
        return Status::failure(Operation::Error::Authorization, message);
    return Status::failure(Operation::Error::Unknown, message);
}

Status syncFolder(const QString& folder)
{
    const int descriptor = ::open(QFile::encodeName(folder).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return systemFailure(errno, QStringLiteral("cannot open folder %1").arg(folder));
    const int result = ::fsync(descriptor);
    const int error = errno;
    ::close(descriptor);
    if (result != 0)
        return systemFailure(error, QStringLiteral("cannot flush folder %1").arg(folder));
    return Status::success();
}

// Copies up to size bytes (all when negative) and says whether they came.
Status copy(QIODevice* source, QIODevice* target, qint64 size)
{
    QByteArray buffer;
    qint64 done = 0;
    while (size < 0 || done < size) {
        const qint64 want = size < 0 ? ChunkSize : qMin(ChunkSize, size - done);
        buffer = source->read(want);
        if (buffer.isEmpty()) {
            if (source->waitForReadyRead(30000))
                continue;
            break;
        }
        errno = 0;
        if (target->write(buffer) != buffer.size()) {
            // The file device's own text is often "Unknown error" for a
            // failed write; the system's reason (a full disk) is what an
            // administrator needs.
            if (errno != 0)
                return systemFailure(errno, QStringLiteral("cannot write"));
            return Status::failure(Operation::Error::Unknown,
                                   QStringLiteral("cannot write: %1").arg(target->errorString()));
        }
        done += buffer.size();
    }
    if (size >= 0 && done < size)
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the data ended after %1 of %2 bytes").arg(done).arg(size));
    return Status::success();
}

} // namespace

FileSystemBackend::FileSystemBackend(const QString& given, const QString& root)
    : m_given(given), m_root(root)
{
}

std::unique_ptr<Backend> FileSystemBackend::create(const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    const QString given =
        reader.has(Config::Path) ? reader.text(Config::Path) : reader.text(Config::Container);
    if (given.isEmpty() || !QDir::isAbsolutePath(given)) {
        *status =
            Status::failure(Operation::Error::InvalidConfiguration,
                            QStringLiteral("the folder path must be absolute: \"%1\"").arg(given));
        return nullptr;
    }
    *status = Status::success();
    return std::unique_ptr<Backend>(new FileSystemBackend(given, QDir::cleanPath(given)));
}

Status FileSystemBackend::containerPresent() const
{
    const QFileInfo info(m_root);
    if (!info.exists())
        return Status::failure(Operation::Error::ContainerNotFound,
                               QStringLiteral("the folder %1 does not exist").arg(m_root));
    if (!info.isDir())
        return Status::failure(Operation::Error::ContainerNotFound,
                               QStringLiteral("%1 is not a folder").arg(m_root));
    return Status::success();
}

QString FileSystemBackend::pathOf(const QString& name) const
{
    return m_root == QLatin1String("/") ? m_root + name : m_root + QLatin1Char('/') + name;
}

Status FileSystemBackend::check()
{
    const Status present = containerPresent();
    if (!present.ok())
        return present;
    const QString probe = pathOf(ObjectName::reserved(QStringLiteral("probe")));
    const QByteArray path = QFile::encodeName(probe);
    const int descriptor = ::open(path.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (descriptor < 0)
        return systemFailure(errno, QStringLiteral("cannot write into %1").arg(m_root));
    const bool written = ::write(descriptor, "probe", 5) == 5;
    const int error = errno;
    ::close(descriptor);
    ::unlink(path.constData());
    if (!written)
        return systemFailure(error, QStringLiteral("cannot write into %1").arg(m_root));
    return Status::success();
}

Status FileSystemBackend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    if (FolderNames::isRoot(m_given)) {
        const Status present = containerPresent();
        if (present.ok())
            containers->append({m_given, -1, QFileInfo(m_root).birthTime().toUTC()});
        return present;
    }
    const QString parent = FolderNames::parentOf(m_given);
    const QDir folder(parent);
    if (!folder.exists())
        return Status::failure(Operation::Error::ContainerNotFound,
                               QStringLiteral("the folder %1 does not exist").arg(parent));
    const QFileInfoList entries =
        folder.entryInfoList(QDir::Dirs | QDir::NoDotAndDotDot | QDir::Hidden, QDir::Name);
    for (const QFileInfo& entry : entries)
        containers->append(
            {FolderNames::sibling(m_given, entry.fileName()), -1, entry.birthTime().toUTC()});
    return Status::success();
}

Status FileSystemBackend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (!status.ok())
        return status;
    status = containerPresent();
    if (!status.ok())
        return status;
    // Only the folder the prefix's last "/" names can hold matches.
    const QString folder = pathOf(prefix.left(prefix.lastIndexOf(QLatin1Char('/')) + 1));
    if (!QFileInfo(folder).isDir())
        return Status::success();
    const int rootLength = pathOf(QString()).size();
    QDirIterator it(folder, QDir::Files | QDir::Hidden | QDir::NoSymLinks,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        it.next();
        const QFileInfo info = it.fileInfo();
        const QString name = info.filePath().mid(rootLength);
        if (!name.startsWith(prefix) || !ObjectName::isListed(info.fileName()))
            continue;
        objects->append({name, info.size(), info.lastModified().toUTC()});
    }
    return Status::success();
}

Status FileSystemBackend::stat(const QString& name, ObjectInfo* info)
{
    const Status valid = ObjectName::check(name);
    if (!valid.ok())
        return valid;
    const QFileInfo file(pathOf(name));
    if (!file.isFile())
        return Status::failure(Operation::Error::ObjectNotFound,
                               QStringLiteral("no object %1 in %2").arg(name, m_root));
    *info = {name, file.size(), file.lastModified().toUTC()};
    return Status::success();
}

Status FileSystemBackend::read(const QString& name, qint64 offset, qint64 length, QIODevice* sink)
{
    const Status valid = ObjectName::check(name);
    if (!valid.ok())
        return valid;
    QFile file(pathOf(name));
    if (!QFileInfo(file).isFile())
        return Status::failure(Operation::Error::ObjectNotFound,
                               QStringLiteral("no object %1 in %2").arg(name, m_root));
    if (!file.open(QIODevice::ReadOnly))
        return Status::failure(Operation::Error::Authorization,
                               QStringLiteral("cannot read %1: %2").arg(name, file.errorString()));
    const qint64 start = qBound<qint64>(0, offset, file.size());
    if (!file.seek(start))
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("cannot read %1: %2").arg(name, file.errorString()));
    const qint64 available = file.size() - start;
    return copy(&file, sink, length < 0 ? available : qMin(length, available));
}

Status FileSystemBackend::placeFor(const QString& name, QString* target, QString* folder) const
{
    Status status = ObjectName::check(name);
    if (!status.ok())
        return status;
    status = containerPresent();
    if (!status.ok())
        return status;
    *target = pathOf(name);
    *folder = QFileInfo(*target).absolutePath();
    if (!QDir().mkpath(*folder))
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("cannot create folder %1").arg(*folder));
    return Status::success();
}

Status FileSystemBackend::write(const QString& name, QIODevice* source, qint64 size)
{
    QString target;
    QString folder;
    Status status = placeFor(name, &target, &folder);
    if (!status.ok())
        return status;
    QTemporaryFile part(folder + QLatin1Char('/') + ObjectName::reserved(QStringLiteral("part")) +
                        QStringLiteral("-XXXXXX"));
    if (!part.open())
        return Status::failure(
            Operation::Error::Authorization,
            QStringLiteral("cannot write into %1: %2").arg(folder, part.errorString()));
    status = copy(source, &part, size);
    if (!status.ok())
        return status;
    if (!part.flush())
        return systemFailure(errno, QStringLiteral("cannot write %1").arg(name));
    if (!m_deferred && ::fsync(part.handle()) != 0)
        return systemFailure(errno, QStringLiteral("cannot write %1").arg(name));
    if (::rename(QFile::encodeName(part.fileName()).constData(),
                 QFile::encodeName(target).constData()) != 0)
        return systemFailure(errno, QStringLiteral("cannot write %1").arg(name));
    part.setAutoRemove(false);
    return settle(folder);
}

Status FileSystemBackend::settle(const QString& folder)
{
    if (m_deferred) {
        m_unflushed = true;
        return Status::success();
    }
    return syncFolder(folder);
}

Status FileSystemBackend::flush()
{
    if (!m_unflushed)
        return Status::success();
    const int descriptor = ::open(QFile::encodeName(m_root).constData(), O_RDONLY | O_CLOEXEC);
    if (descriptor < 0)
        return systemFailure(errno, QStringLiteral("cannot open folder %1").arg(m_root));
    // One flush of the whole file system: the objects' data, their names and
    // their folders, however many there were. It also reports write-back
    // errors that happened since the objects were written.
    const int result = ::syncfs(descriptor);
    const int error = errno;
    ::close(descriptor);
    if (result != 0)
        return systemFailure(error, QStringLiteral("cannot flush the store at %1").arg(m_root));
    m_unflushed = false;
    return Status::success();
}

Status FileSystemBackend::remove(const QString& name)
{
    const Status valid = ObjectName::check(name);
    if (!valid.ok())
        return valid;
    const QByteArray path = QFile::encodeName(pathOf(name));
    if (::unlink(path.constData()) != 0 && errno != ENOENT)
        return systemFailure(errno, QStringLiteral("cannot delete %1").arg(name));
    return Status::success();
}

int FileSystemBackend::stagingFile()
{
    if (!containerPresent().ok())
        return -1;
    return ::open(QFile::encodeName(m_root).constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
}

Status FileSystemBackend::adopt(const QString& name, int descriptor)
{
    struct Closer
    {
        int fd;
        ~Closer() { ::close(fd); }
    } closer{descriptor};
    QString target;
    QString folder;
    const Status status = placeFor(name, &target, &folder);
    if (!status.ok())
        return status;
    if (!m_deferred && ::fsync(descriptor) != 0)
        return systemFailure(errno, QStringLiteral("cannot write %1").arg(name));
    // The unnamed file gets a hidden name beside its target first, so that
    // the final rename replaces any object of that name atomically.
    const QByteArray part =
        QFile::encodeName(folder + QLatin1Char('/') + ObjectName::reserved(QStringLiteral("part")));
    int linked = ::linkat(descriptor, "", AT_FDCWD, part.constData(), AT_EMPTY_PATH);
    if (linked != 0) {
        // Without the capability that AT_EMPTY_PATH needs, the descriptor's
        // entry in /proc does the same.
        const QByteArray proc = "/proc/self/fd/" + QByteArray::number(descriptor);
        linked =
            ::linkat(AT_FDCWD, proc.constData(), AT_FDCWD, part.constData(), AT_SYMLINK_FOLLOW);
    }
    if (linked != 0)
        return systemFailure(errno, QStringLiteral("cannot write %1").arg(name));
    if (::rename(part.constData(), QFile::encodeName(target).constData()) != 0) {
        const int error = errno;
        ::unlink(part.constData());
        return systemFailure(error, QStringLiteral("cannot write %1").arg(name));
    }
    return settle(folder);
}

} // namespace Kel::Cloud
