#include "service/engine/RestoreTarget.h"

#include <QList>
#include <QRandomGenerator>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <limits>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

namespace Orv::Engine {

using Kel::Archive::Node;

namespace {

// Holes are made at this granularity: a zero block inside a piece is not
// written. Smaller zero runs are written as they are, so that ordinary data
// with a few zero bytes does not turn into many small writes.
constexpr quint64 BlockSize = 4096;

const QByteArray TemporaryPrefix = QByteArrayLiteral(".orv-restore-");

// The length of the valid UTF-8 sequence at p, or 0 when there is none.
int utf8Length(const uchar* p, int available)
{
    int length = 0;
    uint code = 0;
    uint least = 0;
    if (p[0] >= 0xc2 && p[0] <= 0xdf) {
        length = 2;
        code = p[0] & 0x1f;
        least = 0x80;
    } else if (p[0] >= 0xe0 && p[0] <= 0xef) {
        length = 3;
        code = p[0] & 0x0f;
        least = 0x800;
    } else if (p[0] >= 0xf0 && p[0] <= 0xf4) {
        length = 4;
        code = p[0] & 0x07;
        least = 0x10000;
    }
    if (length == 0 || length > available)
        return 0;
    for (int k = 1; k < length; ++k) {
        if ((p[k] & 0xc0) != 0x80)
            return 0;
        code = code << 6 | (p[k] & 0x3f);
    }
    if (code < least || code > 0x10ffff || (code >= 0xd800 && code <= 0xdfff))
        return 0;
    return length;
}

// Names are bytes. Show them as UTF-8 where they are valid and escape the
// rest, and control bytes too, so that a message stays one readable line.
QString shown(const QByteArray& path)
{
    const auto* bytes = reinterpret_cast<const uchar*>(path.constData());
    QString out;
    int i = 0;
    while (i < path.size()) {
        if (bytes[i] >= 0x20 && bytes[i] < 0x7f) {
            out += QLatin1Char(static_cast<char>(bytes[i++]));
        } else if (const int length = utf8Length(bytes + i, path.size() - i)) {
            out += QString::fromUtf8(path.constData() + i, length);
            i += length;
        } else {
            out += QStringLiteral("\\x%1").arg(uint(bytes[i++]), 2, 16, QLatin1Char('0'));
        }
    }
    return out;
}

bool fail(QString* error, const QString& message)
{
    if (error)
        *error = message;
    return false;
}

// "Cannot write /x/y: No space left on device"
bool fail(QString* error, const char* what, const QByteArray& path, int code)
{
    return fail(error, QStringLiteral("%1 %2: %3")
                           .arg(QLatin1String(what), shown(path),
                                QString::fromLocal8Bit(std::strerror(code))));
}

QByteArray parentOf(const QByteArray& path)
{
    const int slash = path.lastIndexOf('/');
    return slash <= 0 ? QByteArrayLiteral("/") : path.left(slash);
}

QByteArray temporaryBeside(const QByteArray& place)
{
    const QByteArray random =
        QByteArray::number(QRandomGenerator::global()->generate64(), 16).rightJustified(16, '0');
    const QByteArray parent = parentOf(place);
    return (parent == "/" ? QByteArray() : parent) + '/' + TemporaryPrefix + random;
}

qint64 mtimeNs(const struct stat& st)
{
    return qint64(st.st_mtim.tv_sec) * 1000000000 + st.st_mtim.tv_nsec;
}

// Both access and modification time: the backup keeps only the latter.
void toTimes(qint64 ns, struct timespec times[2])
{
    qint64 seconds = ns / 1000000000;
    qint64 rest = ns % 1000000000;
    if (rest < 0) { // before 1970
        rest += 1000000000;
        --seconds;
    }
    times[0].tv_sec = static_cast<time_t>(seconds);
    times[0].tv_nsec = static_cast<long>(rest);
    times[1] = times[0];
}

bool isZero(const char* data, std::size_t size)
{
    return size == 0 || (data[0] == 0 && std::memcmp(data, data + 1, size - 1) == 0);
}

bool writeAll(int fd, const char* data, std::size_t size, quint64 offset)
{
    while (size > 0) {
        const ssize_t done = ::pwrite(fd, data, size, static_cast<off_t>(offset));
        if (done < 0) {
            if (errno == EINTR)
                continue;
            return false;
        }
        if (done == 0) {
            errno = EIO;
            return false;
        }
        data += done;
        size -= static_cast<std::size_t>(done);
        offset += static_cast<quint64>(done);
    }
    return true;
}

} // namespace

// Nothing here changes after construction, and the file system is the only
// shared state: the target needs no lock for its const methods and
// makeDirectory to run on several threads, nor for writers on several threads.
struct RestoreTarget::Private
{
    QByteArray destination; // without a trailing slash; empty for the original place
    bool destinationIsAbsolute = true;
    Existing existing = Existing::Overwrite;
    bool setOwners = false;

    // Below the destination the restore trusts nothing it finds: a link there
    // may come from the backup itself and point anywhere. Above it (and with no
    // destination at all) the folders are the user's own and links in them
    // are followed as usual.
    bool inside(const QByteArray& path) const
    {
        return !destination.isEmpty() && path.size() > destination.size();
    }

    bool ensureFolder(const QByteArray& path, bool mayReplace, QString* error) const;
    bool setMetadata(const QByteArray& path, const QByteArray& place, const Node& node,
                     bool setMode, QString* error) const;
    template <typename Create>
    bool createAt(const QByteArray& place, const char* what, const Create& create,
                  const Node* metadata, bool setMode, QString* error) const;
};

// mkdir -p. A folder made here gets mode 0700 whether it is in the restore or
// not: one that is gets its own mode from finishDirectory, one that is not (the
// destination itself, or an ancestor of a partial restore) keeps 0700, so
// nothing restored is ever reachable by more users than the backup allowed.
bool RestoreTarget::Private::ensureFolder(const QByteArray& path, bool mayReplace,
                                          QString* error) const
{
    const bool in = inside(path);
    // Inside the destination every level is checked, even when the folder
    // exists, since an lstat of the path alone would go through a link above.
    if (in && !ensureFolder(parentOf(path), false, error))
        return false;
    struct stat st;
    const auto look = [&] {
        return in ? ::lstat(path.constData(), &st) : ::stat(path.constData(), &st);
    };
    if (look() == 0) {
        if (S_ISDIR(st.st_mode))
            return true;
        if (!mayReplace) {
            if (in && S_ISLNK(st.st_mode))
                return fail(error, QStringLiteral("Cannot restore into %1: it is a symbolic link")
                                       .arg(shown(path)));
            return fail(error, "Cannot create folder", path, EEXIST);
        }
        if (::unlink(path.constData()) != 0)
            return fail(error, "Cannot replace", path, errno);
    } else if (errno != ENOENT) {
        return fail(error, "Cannot create folder", path, errno);
    } else if (!in && path != "/" && !ensureFolder(parentOf(path), false, error)) {
        return false;
    }
    if (::mkdir(path.constData(), 0700) == 0)
        return true;
    const int code = errno;
    if (code == EEXIST && look() == 0 && S_ISDIR(st.st_mode))
        return true; // another thread made it meanwhile
    return fail(error, "Cannot create folder", path, code);
}

// Owner first: changing it clears the setuid and setgid bits the mode may
// then set. Links have no mode of their own.
bool RestoreTarget::Private::setMetadata(const QByteArray& path, const QByteArray& place,
                                         const Node& node, bool setMode, QString* error) const
{
    if (setOwners && ::lchown(path.constData(), node.uid, node.gid) != 0)
        return fail(error, "Cannot set the owner of", place, errno);
    if (setMode && ::chmod(path.constData(), node.mode & 07777) != 0)
        return fail(error, "Cannot set the permissions of", place, errno);
    struct timespec times[2];
    toTimes(node.mtimeNs, times);
    if (::utimensat(AT_FDCWD, path.constData(), times, AT_SYMLINK_NOFOLLOW) != 0)
        return fail(error, "Cannot set the times of", place, errno);
    return true;
}

// Makes an entry with create(path) at the place, or, when something is already
// there (the caller has decided it goes), under a temporary name beside it,
// renamed over the place once complete: the place never is empty or half made.
template <typename Create>
bool RestoreTarget::Private::createAt(const QByteArray& place, const char* what,
                                      const Create& create, const Node* metadata, bool setMode,
                                      QString* error) const
{
    if (!ensureFolder(parentOf(place), false, error))
        return false;
    if (create(place) == 0)
        return !metadata || setMetadata(place, place, *metadata, setMode, error);
    if (errno != EEXIST)
        return fail(error, what, place, errno);
    QByteArray temporary;
    for (;;) {
        temporary = temporaryBeside(place);
        if (create(temporary) == 0)
            break;
        if (errno != EEXIST)
            return fail(error, what, place, errno);
    }
    if (metadata && !setMetadata(temporary, place, *metadata, setMode, error)) {
        ::unlink(temporary.constData());
        return false;
    }
    if (::rename(temporary.constData(), place.constData()) != 0) {
        const int code = errno;
        ::unlink(temporary.constData());
        return fail(error, "Cannot replace", place, code);
    }
    // rename() between two names of the same file does nothing and keeps both:
    // a hard link restored over itself would leave the temporary name behind.
    ::unlink(temporary.constData());
    return true;
}

RestoreTarget::RestoreTarget(const Options& options) : d(new Private)
{
    d->destination = options.destination;
    while (d->destination.endsWith('/'))
        d->destination.chop(1);
    d->destinationIsAbsolute = options.destination.isEmpty() || options.destination.startsWith('/');
    d->existing = options.existing;
    d->setOwners = options.restoreOwners && ::geteuid() == 0;
}

RestoreTarget::~RestoreTarget() = default;

// Paths come from storage, which this machine does not control: a path with a
// "..", "." or empty part, or a NUL byte, could name something outside the
// destination (or something other than it says), so it is refused rather than
// cleaned up.
QByteArray RestoreTarget::place(const QByteArray& originalPath, QString* error) const
{
    const auto refuse = [&](const char* why) {
        fail(error, QStringLiteral("Refusing the path %1 from the backup: %2")
                        .arg(shown(originalPath), QLatin1String(why)));
        return QByteArray();
    };
    if (!d->destinationIsAbsolute)
        return refuse("the destination is not an absolute path");
    if (!originalPath.startsWith('/'))
        return refuse("it is not absolute");
    if (originalPath.contains('\0'))
        return refuse("it contains a NUL byte");
    QByteArray path = originalPath;
    if (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    if (path.size() > 1) {
        for (const QByteArray& part : path.mid(1).split('/')) {
            if (part.isEmpty() || part == "." || part == "..")
                return refuse("it has an empty, \".\" or \"..\" part");
        }
    }
    if (d->destination.isEmpty())
        return path;
    return path == "/" ? d->destination : d->destination + path;
}

bool RestoreTarget::wanted(const QByteArray& place, const Node& node) const
{
    if (node.isDirectory())
        return true; // folders are merged: makeDirectory takes an existing one as it is
    struct stat st;
    if (::lstat(place.constData(), &st) != 0)
        return true; // missing; any other trouble the write itself reports
    switch (d->existing) {
    case Existing::Overwrite:
        return true;
    case Existing::SkipExisting:
        return false;
    case Existing::OnlyNewer:
        return mtimeNs(st) < node.mtimeNs;
    }
    return true;
}

bool RestoreTarget::makeDirectory(const QByteArray& place, QString* error)
{
    return d->ensureFolder(place, d->existing == Existing::Overwrite, error);
}

bool RestoreTarget::finishDirectory(const QByteArray& place, const Node& node, QString* error)
{
    // A link at the place is followed only where links are trusted (see
    // inside()); below the destination the folder must be a real one.
    struct stat st;
    const bool in = d->inside(place);
    if ((in ? ::lstat(place.constData(), &st) : ::stat(place.constData(), &st)) != 0)
        return fail(error, "Cannot set the metadata of", place, errno);
    if (!S_ISDIR(st.st_mode))
        return fail(error, "Cannot set the metadata of", place, ENOTDIR);
    if (d->setOwners && ::chown(place.constData(), node.uid, node.gid) != 0)
        return fail(error, "Cannot set the owner of", place, errno);
    if (::chmod(place.constData(), node.mode & 07777) != 0)
        return fail(error, "Cannot set the permissions of", place, errno);
    struct timespec times[2];
    toTimes(node.mtimeNs, times);
    if (::utimensat(AT_FDCWD, place.constData(), times, in ? AT_SYMLINK_NOFOLLOW : 0) != 0)
        return fail(error, "Cannot set the times of", place, errno);
    return true;
}

bool RestoreTarget::makeSymlink(const QByteArray& place, const Node& node, QString* error)
{
    const auto create = [&](const QByteArray& path) {
        return ::symlink(node.linkTarget.constData(), path.constData());
    };
    return d->createAt(place, "Cannot create the link", create, &node, false, error);
}

bool RestoreTarget::makeSpecial(const QByteArray& place, const Node& node, QString* error)
{
    mode_t type = 0;
    switch (node.type) {
    case Node::Type::Fifo:
        type = S_IFIFO;
        break;
    case Node::Type::CharDevice:
        type = S_IFCHR;
        break;
    case Node::Type::BlockDevice:
        type = S_IFBLK;
        break;
    default:
        return fail(error,
                    QStringLiteral("Cannot create %1: not a fifo or device").arg(shown(place)));
    }
    if (type != S_IFIFO && ::geteuid() != 0)
        return fail(error, QStringLiteral("Cannot create the device %1: devices can only be "
                                          "restored by root")
                               .arg(shown(place)));
    const auto create = [&](const QByteArray& path) {
        return ::mknod(path.constData(), type | 0600, type == S_IFIFO ? 0 : dev_t(node.rdev));
    };
    return d->createAt(place, "Cannot create", create, &node, true, error);
}

bool RestoreTarget::makeHardLink(const QByteArray& place, const QByteArray& existing,
                                 QString* error)
{
    const auto create = [&](const QByteArray& path) {
        return ::link(existing.constData(), path.constData());
    };
    return d->createAt(place, "Cannot create the hard link", create, nullptr, false, error);
}

struct RestoreTarget::FileWriter::Private
{
    int fd = -1;
    QByteArray temporary; // empty once renamed or removed
    QByteArray place;
    Node node;
    bool setOwner = false;
    QString failure; // the first failure: everything after it fails the same way

    bool fail(QString* error, const char* what, int code)
    {
        discard();
        Engine::fail(&failure, what, place, code);
        if (error)
            *error = failure;
        return false;
    }

    void discard()
    {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
        if (!temporary.isEmpty())
            ::unlink(temporary.constData());
        temporary.clear();
    }

    bool stopped(QString* error) const
    {
        if (fd >= 0)
            return false;
        Engine::fail(error, failure.isEmpty()
                                ? QStringLiteral("%1 is already complete").arg(shown(place))
                                : failure);
        return true;
    }
};

RestoreTarget::FileWriter::~FileWriter()
{
    if (d)
        d->discard();
}

// The temporary file is new and empty, so whatever is not written reads back
// as zeros: zero blocks are left out and become holes. (This relies on each
// byte arriving once, as pieces of a file's content do.)
bool RestoreTarget::FileWriter::write(quint64 offset, const char* data, std::size_t size,
                                      QString* error)
{
    if (d->stopped(error))
        return false;
    if (offset > quint64(std::numeric_limits<off_t>::max()) - size)
        return d->fail(error, "Cannot write", EFBIG);
    const char* run = nullptr; // start of the data not yet written
    quint64 runOffset = 0;
    const char* const end = data + size;
    while (data < end) {
        const quint64 blockEnd = (offset / BlockSize + 1) * BlockSize;
        const std::size_t length =
            std::size_t(std::min<quint64>(quint64(end - data), blockEnd - offset));
        if (!isZero(data, length)) {
            if (!run) {
                run = data;
                runOffset = offset;
            }
        } else if (run) {
            if (!writeAll(d->fd, run, std::size_t(data - run), runOffset))
                return d->fail(error, "Cannot write", errno);
            run = nullptr;
        }
        data += length;
        offset += length;
    }
    if (run && !writeAll(d->fd, run, std::size_t(end - run), runOffset))
        return d->fail(error, "Cannot write", errno);
    return true;
}

// No fsync: for a hundred thousand small files it would cost more than the
// restore itself. A restore that stops (failure, crash, kill) leaves at each
// place either the old file or a complete new one, plus temporary files named
// .orv-restore-* that are safe to delete; only a power loss can leave a renamed
// file whose data never reached the disk, and such a restore never reported
// success, so it is run again.
bool RestoreTarget::FileWriter::commit(QString* error)
{
    if (d->stopped(error))
        return false;
    if (d->node.size > quint64(std::numeric_limits<off_t>::max()))
        return d->fail(error, "Cannot write", EFBIG);
    if (::ftruncate(d->fd, static_cast<off_t>(d->node.size)) != 0)
        return d->fail(error, "Cannot write", errno);
    if (d->setOwner && ::fchown(d->fd, d->node.uid, d->node.gid) != 0)
        return d->fail(error, "Cannot set the owner of", errno);
    if (::fchmod(d->fd, d->node.mode & 07777) != 0) // after the owner: chown clears setuid
        return d->fail(error, "Cannot set the permissions of", errno);
    struct timespec times[2];
    toTimes(d->node.mtimeNs, times);
    if (::futimens(d->fd, times) != 0)
        return d->fail(error, "Cannot set the times of", errno);
    const int fd = d->fd;
    d->fd = -1;
    if (::close(fd) != 0) // network file systems report failed writes here
        return d->fail(error, "Cannot write", errno);
    if (::rename(d->temporary.constData(), d->place.constData()) != 0)
        return d->fail(error, "Cannot replace", errno);
    d->temporary.clear();
    d->failure.clear();
    return true;
}

std::unique_ptr<RestoreTarget::FileWriter> RestoreTarget::openFile(const QByteArray& place,
                                                                   const Node& node, QString* error)
{
    if (!d->ensureFolder(parentOf(place), false, error))
        return nullptr;
    std::unique_ptr<FileWriter> writer(new FileWriter);
    writer->d.reset(new FileWriter::Private);
    FileWriter::Private& w = *writer->d;
    w.place = place;
    w.node = node;
    w.node.chunks.clear(); // not needed here, and possibly large
    w.setOwner = d->setOwners;
    do {
        w.temporary = temporaryBeside(place);
        w.fd = ::open(w.temporary.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                      0600);
    } while (w.fd < 0 && errno == EEXIST);
    if (w.fd < 0) {
        w.temporary.clear();
        fail(error, "Cannot create a temporary file for", place, errno);
        return nullptr;
    }
    return writer;
}

} // namespace Orv::Engine
