#include "service/engine/SourceWalker.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <fnmatch.h>
#include <memory>
#include <string>
#include <sys/statfs.h>
#include <sys/sysmacros.h>
#include <unistd.h>
#include <utility>
#include <vector>

// How the walk reads the file system:
// - Paths and names are bytes from end to end; nothing on the way per entry
//   turns into a QString, so names that are not UTF-8 pass unchanged.
// - A folder is opened relative to its parent's descriptor, without
//   following a link, listed whole, sorted by bytes, and each name is
//   examined only when its turn comes. What one level needs (the names, the
//   WalkEntry objects handed to the visitor) lives in a Level reused by every
//   folder at that depth, so memory follows the depth and the widest folder
//   met, never the number of files in the tree, and the buffers are not
//   allocated again for each entry.
// - Names: a root is named by its last component, the root "/" by "/".
// - A folder that cannot be opened or listed is a problem and is not reported
//   at all: an empty folder in its place would claim it was empty.
// - Once stopRequested() says so, the visitor hears nothing more, not even the
//   leaveDirectory and endRoot of what was open.
// - A source that is itself a symlink is treated by the link mode like any
//   other link (under Ignore it is left out).
// - Masks judge a link by what it stands for: a kept link is a non-folder
//   entry (file masks); a followed link or a queued target is judged as the
//   folder or file it leads to, by the link's name.
// - A source inside another source is taken where the walk of the outer one
//   meets it, spared the hidden and mask filters as every source is, and not
//   walked again. Only when that walk never reaches it (a filtered folder
//   above it) is it walked as a root of its own.

namespace Orv::Engine {

using Orv::Common::SymlinkBackupMode;

namespace {

// Kernel file systems whose content is made up on reading; backing them up
// is useless and reading some of them blocks or never ends.
constexpr unsigned long kPseudoFsTypes[] = {
    0x9fa0,     // proc
    0x62656572, // sysfs
    0x1cd1,     // devpts
    0x27e0eb,   // cgroup
    0x63677270, // cgroup2
    0x64626720, // debugfs
    0x74726163, // tracefs
    0x73636673, // securityfs
    0x6165676c, // pstore
    0xcafe4a11, // bpf
    0x62656570, // configfs
    0x65735543, // fusectl
    0x19800202, // mqueue
    0x958458f6, // hugetlbfs
    0x42494e4d, // binfmt_misc
};

// devtmpfs reports the tmpfs type to statfs, so it is known by name from the
// mount table instead; the other names are there for kernels whose magic
// numbers the list above misses.
constexpr const char* kPseudoFsNames[] = {
    "devtmpfs",   "proc",   "sysfs", "devpts",   "cgroup",  "cgroup2", "debugfs",   "tracefs",
    "securityfs", "pstore", "bpf",   "configfs", "fusectl", "mqueue",  "hugetlbfs", "binfmt_misc",
};

using FileId = std::pair<dev_t, ino_t>;

FileId idOf(const struct stat& st)
{
    return {st.st_dev, st.st_ino};
}

QString errorText(int error)
{
    return QString::fromLocal8Bit(strerror(error));
}

// Copies bytes into dst, reusing its buffer when nobody else holds it.
void assignBytes(QByteArray& dst, const char* data, int size)
{
    dst.resize(size);
    if (size > 0)
        memcpy(dst.data(), data, size_t(size));
}

QByteArray lastComponent(const QByteArray& path)
{
    if (path == "/")
        return path;
    return path.mid(path.lastIndexOf('/') + 1);
}

// Without trailing slashes ("/" stays "/").
QByteArray normalized(QByteArray path)
{
    while (path.size() > 1 && path.endsWith('/'))
        path.chop(1);
    return path;
}

// Whether path is root or lies below it, by whole components.
bool isInside(const QByteArray& path, const QByteArray& root)
{
    if (root == "/")
        return path.startsWith('/');
    return path.startsWith(root) && (path.size() == root.size() || path.at(root.size()) == '/');
}

QByteArray resolved(const char* path)
{
    char* real = realpath(path, nullptr);
    if (!real)
        return QByteArray();
    QByteArray result(real);
    free(real);
    return result;
}

bool readLink(int dirFd, const char* name, QByteArray& target)
{
    char buffer[4096];
    ssize_t n = readlinkat(dirFd, name, buffer, sizeof buffer);
    if (n < 0)
        return false;
    if (size_t(n) < sizeof buffer) {
        assignBytes(target, buffer, int(n));
        return true;
    }
    // Longer than any path the kernel resolves, but a link may hold it.
    for (size_t size = sizeof buffer * 2;; size *= 2) {
        std::string big(size, '\0');
        n = readlinkat(dirFd, name, &big[0], size);
        if (n < 0)
            return false;
        if (size_t(n) < size) {
            assignBytes(target, big.data(), int(n));
            return true;
        }
    }
}

// Regular files other processes hold open for writing, read once from /proc.
std::vector<FileId> filesOpenForWriting()
{
    std::vector<FileId> ids;
    DIR* proc = opendir("/proc");
    if (!proc)
        return ids;
    const pid_t self = getpid();
    while (dirent* process = readdir(proc)) {
        char* end = nullptr;
        long pid = strtol(process->d_name, &end, 10);
        if (*end != '\0' || pid <= 0 || pid == self)
            continue;
        int pidFd = openat(dirfd(proc), process->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (pidFd < 0)
            continue;
        int fdFd = openat(pidFd, "fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        int infoFd = openat(pidFd, "fdinfo", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        close(pidFd);
        DIR* fds = fdFd < 0 ? nullptr : fdopendir(fdFd);
        while (dirent* fd = fds && infoFd >= 0 ? readdir(fds) : nullptr) {
            if (fd->d_name[0] == '.')
                continue;
            struct stat st;
            // Stat first: most descriptors are sockets and pipes, and their
            // flags need not be read.
            if (fstatat(fdFd, fd->d_name, &st, 0) != 0 || !S_ISREG(st.st_mode))
                continue;
            int info = openat(infoFd, fd->d_name, O_RDONLY | O_CLOEXEC);
            if (info < 0)
                continue;
            char text[512];
            ssize_t n = read(info, text, sizeof text - 1);
            close(info);
            if (n <= 0)
                continue;
            text[n] = '\0';
            const char* flags = strstr(text, "flags:");
            if (!flags)
                continue;
            unsigned long mode = strtoul(flags + 6, nullptr, 8) & O_ACCMODE;
            if (mode == O_WRONLY || mode == O_RDWR)
                ids.push_back(idOf(st));
        }
        if (fds)
            closedir(fds);
        else if (fdFd >= 0)
            close(fdFd);
        if (infoFd >= 0)
            close(infoFd);
    }
    closedir(proc);
    std::sort(ids.begin(), ids.end());
    ids.erase(std::unique(ids.begin(), ids.end()), ids.end());
    return ids;
}

// Devices mounted with a pseudo file system, from our mount table.
std::vector<dev_t> pseudoMountDevices()
{
    std::vector<dev_t> devices;
    FILE* table = fopen("/proc/self/mountinfo", "re");
    if (!table)
        return devices;
    char* line = nullptr;
    size_t capacity = 0;
    while (getline(&line, &capacity, table) > 0) {
        unsigned major = 0, minor = 0;
        if (sscanf(line, "%*u %*u %u:%u", &major, &minor) != 2)
            continue;
        const char* separator = strstr(line, " - ");
        if (!separator)
            continue;
        char type[64];
        if (sscanf(separator + 3, "%63s", type) != 1)
            continue;
        for (const char* name : kPseudoFsNames) {
            if (strcmp(type, name) == 0) {
                devices.push_back(makedev(major, minor));
                break;
            }
        }
    }
    free(line);
    fclose(table);
    return devices;
}

} // namespace

struct SourceWalker::Private
{
    // One depth of the walk. Names are stored back to back, each followed by
    // a NUL so that the *at() calls take them in place.
    struct Name
    {
        uint32_t offset;
        uint32_t size;
    };

    struct Level
    {
        WalkEntry directory;
        WalkEntry item; // the entry being looked at; its path starts as the folder's
        int prefixSize; // of item.path: the folder's path and a '/'
        std::string names;
        std::vector<Name> order;
        DIR* dir = nullptr;

        Level()
        {
            directory.path.reserve(256);
            directory.name.reserve(64);
            item.path.reserve(256);
            item.name.reserve(64);
        }
    };

    // A source with what the walk needs to know about it.
    struct Root
    {
        QByteArray path;
        QByteArray real;      // with links resolved, to compare with link targets
        bool reached = false; // taken in place by the walk of a source around it
    };

    WalkOptions options;
    std::vector<QByteArray> excluded;
    std::vector<QByteArray> folderMasks;
    std::vector<QByteArray> fileMasks;
    SymlinkBackupMode::Mode mode;

    // Per walk.
    WalkVisitor* visitor = nullptr;
    bool stopped = false;
    std::vector<std::unique_ptr<Level>> levels;
    std::vector<FileId> chain; // folders open from the root down
    std::vector<FileId> inUse;
    std::vector<dev_t> pseudoDevices;
    std::vector<Root> sources;
    std::vector<Root*> nested;      // other sources inside the current root
    std::vector<QByteArray> queued; // roots added by links, in the order found

    explicit Private(const WalkOptions& o) : options(o), mode(o.symlinkMode)
    {
        for (const QByteArray& path : o.excluded) {
            if (!path.isEmpty())
                excluded.push_back(normalized(path));
        }
        for (const QString& mask : o.skipFolderMasks)
            folderMasks.push_back(mask.toUtf8());
        if (o.fileMaskType != WalkOptions::FileMaskType::All) {
            for (const QString& mask : o.fileMasks)
                fileMasks.push_back(mask.toUtf8());
        }
    }

    bool stopNow()
    {
        if (!stopped && visitor->stopRequested())
            stopped = true;
        return stopped;
    }

    Level& level(size_t depth)
    {
        while (levels.size() <= depth)
            levels.push_back(std::make_unique<Level>());
        return *levels[depth];
    }

    bool isExcludedRoot(const QByteArray& path) const
    {
        for (const QByteArray& e : excluded) {
            if (isInside(path, e))
                return true;
        }
        return false;
    }

    // Below a root only the path itself needs checking: what lies under an
    // excluded path is never reached.
    bool isExcluded(const QByteArray& path) const
    {
        for (const QByteArray& e : excluded) {
            if (e.size() == path.size() && memcmp(e.constData(), path.constData(), e.size()) == 0)
                return true;
        }
        return false;
    }

    bool isNestedSource(const QByteArray& path) const
    {
        for (const Root* root : nested) {
            if (root->path == path)
                return true;
        }
        return false;
    }

    // Called with what is reported: a source among it needs no walk of its own.
    void noteReported(const QByteArray& path)
    {
        for (Root* root : nested) {
            if (root->path == path)
                root->reached = true;
        }
    }

    static bool matchesAny(const std::vector<QByteArray>& masks, const char* name)
    {
        for (const QByteArray& mask : masks) {
            if (fnmatch(mask.constData(), name, 0) == 0)
                return true;
        }
        return false;
    }

    bool folderNameWanted(const char* name) const { return !matchesAny(folderMasks, name); }

    bool fileNameWanted(const char* name) const
    {
        switch (options.fileMaskType) {
        case WalkOptions::FileMaskType::BackupOnly:
            return matchesAny(fileMasks, name);
        case WalkOptions::FileMaskType::Skip:
            return !matchesAny(fileMasks, name);
        case WalkOptions::FileMaskType::All:
            break;
        }
        return true;
    }

    bool isInUse(const struct stat& st) const
    {
        return !inUse.empty() && S_ISREG(st.st_mode) &&
               std::binary_search(inUse.begin(), inUse.end(), idOf(st));
    }

    bool isOnChain(const struct stat& st) const
    {
        return std::find(chain.begin(), chain.end(), idOf(st)) != chain.end();
    }

    bool isPseudoFs(int fd, const struct stat& st) const
    {
        if (std::find(pseudoDevices.begin(), pseudoDevices.end(), st.st_dev) != pseudoDevices.end())
            return true;
        struct statfs fs;
        if (fstatfs(fd, &fs) != 0)
            return false;
        for (unsigned long type : kPseudoFsTypes) {
            if ((unsigned long)fs.f_type == type)
                return true;
        }
        return false;
    }

    // Whether a link target is already covered by a source or a queued root.
    bool isTaken(const QByteArray& target) const
    {
        for (const Root& root : sources) {
            if (isInside(target, root.path) ||
                (!root.real.isEmpty() && isInside(target, root.real)))
                return true;
        }
        for (const QByteArray& root : queued) {
            if (isInside(target, root))
                return true;
        }
        return false;
    }

    // Hands a non-folder entry of a folder to the visitor.
    void report(WalkEntry& item, const char* name, int size)
    {
        assignBytes(item.name, name, size);
        if (!nested.empty())
            noteReported(item.path);
        visitor->entry(item);
    }

    void walk(WalkVisitor* v);
    void walkRoot(const QByteArray& path);
    void takeRoot(WalkEntry& root, int openFlags);
    void takeRootLink(WalkEntry& root);
    bool statTarget(int dirFd, const char* name, const QByteArray& path, struct stat& target);
    void queueTarget(const QByteArray& linkPath);
    bool listFolder(Level& lv, int fd);
    void walkFolder(size_t depth, int fd, bool checkFs);
    void examine(size_t depth, const Name& name);
    void takeFolder(size_t depth, const char* name, const struct stat& st, bool follow);
    void takeLink(size_t depth, const char* name, struct stat& st, bool spared);
};

void SourceWalker::Private::walk(WalkVisitor* v)
{
    visitor = v;
    stopped = false;
    chain.clear();
    queued.clear();
    sources.clear();
    inUse.clear();
    if (options.skipInUse)
        inUse = filesOpenForWriting();
    pseudoDevices = pseudoMountDevices();

    for (const QByteArray& source : options.sources) {
        Root root;
        root.path = normalized(source);
        bool duplicate = false;
        for (const Root& other : sources)
            duplicate = duplicate || other.path == root.path;
        if (duplicate)
            continue;
        root.real = resolved(root.path.constData());
        sources.push_back(root);
    }

    for (size_t i = 0; i < sources.size() && !stopNow(); ++i) {
        if (sources[i].reached)
            continue;
        nested.clear();
        for (Root& other : sources) {
            if (&other != &sources[i] && isInside(other.path, sources[i].path))
                nested.push_back(&other);
        }
        walkRoot(sources[i].path);
    }
    nested.clear();
    // Walking a queued root may queue more.
    for (size_t i = 0; i < queued.size() && !stopNow(); ++i)
        walkRoot(QByteArray(queued[i]));

    for (auto& lv : levels) {
        if (lv->dir) {
            closedir(lv->dir);
            lv->dir = nullptr;
        }
    }
    visitor = nullptr;
}

void SourceWalker::Private::walkRoot(const QByteArray& path)
{
    if (!path.startsWith('/')) {
        visitor->problem(path, QStringLiteral("not an absolute path"));
        return;
    }
    if (isExcludedRoot(path))
        return;

    Level& lv = level(0);
    WalkEntry& root = lv.directory;
    assignBytes(root.path, path.constData(), path.size());
    root.name = lastComponent(path);
    root.linkTarget.resize(0);
    if (fstatat(AT_FDCWD, path.constData(), &root.st, AT_SYMLINK_NOFOLLOW) != 0) {
        int error = errno;
        visitor->problem(path, error == ENOENT
                                   ? QStringLiteral("does not exist")
                                   : QStringLiteral("cannot be read: ") + errorText(error));
        return;
    }

    if (S_ISLNK(root.st.st_mode))
        takeRootLink(root);
    else
        takeRoot(root, O_NOFOLLOW);
}

// Reports a root whose stat is settled; a folder is opened with the extra
// open flags given and walked.
void SourceWalker::Private::takeRoot(WalkEntry& root, int openFlags)
{
    if (S_ISSOCK(root.st.st_mode))
        return;
    if (S_ISDIR(root.st.st_mode)) {
        int fd = open(root.path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | openFlags);
        if (fd < 0) {
            visitor->problem(root.path, QStringLiteral("cannot be opened: ") + errorText(errno));
            return;
        }
        visitor->beginRoot(root);
        walkFolder(0, fd, true);
        if (!stopNow())
            visitor->endRoot(root);
        return;
    }
    if (isInUse(root.st)) {
        visitor->problem(root.path, QStringLiteral("in use by another process"));
        return;
    }
    visitor->beginRoot(root);
    visitor->entry(root);
    visitor->endRoot(root);
}

void SourceWalker::Private::takeRootLink(WalkEntry& root)
{
    const QByteArray path = root.path;
    const bool keepLink = mode == SymlinkBackupMode::SymlinkOnly ||
                          mode == SymlinkBackupMode::OriginalPlaceAndSymlink;
    const bool queueIt = mode == SymlinkBackupMode::OriginalPlaces ||
                         mode == SymlinkBackupMode::OriginalPlaceAndSymlink;

    struct stat target;
    if (mode == SymlinkBackupMode::CurrentPlace) {
        if (statTarget(AT_FDCWD, path.constData(), path, target)) {
            root.st = target;
            takeRoot(root, 0);
        }
        return;
    }
    if (keepLink) {
        if (!readLink(AT_FDCWD, path.constData(), root.linkTarget)) {
            visitor->problem(path, QStringLiteral("cannot be read: ") + errorText(errno));
            return;
        }
        takeRoot(root, 0);
    }
    if (queueIt && statTarget(AT_FDCWD, path.constData(), path, target))
        queueTarget(path);
}

// stat() of what the link leads to; a dangling or looping link is a problem.
bool SourceWalker::Private::statTarget(int dirFd, const char* name, const QByteArray& path,
                                       struct stat& target)
{
    if (fstatat(dirFd, name, &target, 0) == 0)
        return true;
    int error = errno;
    visitor->problem(path, error == ELOOP ? QStringLiteral("link loops")
                           : error == ENOENT
                               ? QStringLiteral("link target does not exist")
                               : QStringLiteral("link target cannot be read: ") + errorText(error));
    return false;
}

// Adds what the link at linkPath leads to as a root of its own, unless a root
// already covers it.
void SourceWalker::Private::queueTarget(const QByteArray& linkPath)
{
    QByteArray real = resolved(linkPath.constData());
    if (real.isEmpty()) {
        visitor->problem(linkPath,
                         QStringLiteral("link target cannot be resolved: ") + errorText(errno));
        return;
    }
    if (isExcludedRoot(real) || isTaken(real))
        return;
    queued.push_back(real);
}

// Reads all names of the folder open at fd into lv, sorted by bytes.
bool SourceWalker::Private::listFolder(Level& lv, int fd)
{
    lv.names.clear();
    lv.order.clear();
    lv.dir = fdopendir(fd);
    if (!lv.dir) {
        visitor->problem(lv.directory.path, QStringLiteral("cannot be read: ") + errorText(errno));
        close(fd);
        return false;
    }
    for (;;) {
        errno = 0;
        dirent* d = readdir(lv.dir);
        if (!d)
            break;
        const char* n = d->d_name;
        if (n[0] == '.' && (n[1] == '\0' || (n[1] == '.' && n[2] == '\0')))
            continue;
        size_t size = strlen(n);
        lv.order.push_back(Name{uint32_t(lv.names.size()), uint32_t(size)});
        lv.names.append(n, size + 1);
    }
    if (errno != 0) {
        visitor->problem(lv.directory.path, QStringLiteral("cannot be read: ") + errorText(errno));
        closedir(lv.dir);
        lv.dir = nullptr;
        return false;
    }
    const char* base = lv.names.data();
    std::sort(lv.order.begin(), lv.order.end(), [base](const Name& a, const Name& b) {
        int c = memcmp(base + a.offset, base + b.offset, std::min(a.size, b.size));
        return c != 0 ? c < 0 : a.size < b.size;
    });
    return true;
}

// Walks the folder described by level(depth).directory, open at fd (which it
// takes). checkFs: the folder may be on another file system than its parent.
void SourceWalker::Private::walkFolder(size_t depth, int fd, bool checkFs)
{
    Level& lv = level(depth);
    if (checkFs && isPseudoFs(fd, lv.directory.st)) {
        close(fd);
        visitor->enterDirectory(lv.directory);
        visitor->leaveDirectory(lv.directory);
        return;
    }
    if (!listFolder(lv, fd))
        return;

    assignBytes(lv.item.path, lv.directory.path.constData(), lv.directory.path.size());
    if (lv.item.path != "/")
        lv.item.path.append('/');
    lv.prefixSize = lv.item.path.size();

    if (!nested.empty())
        noteReported(lv.directory.path);
    visitor->enterDirectory(lv.directory);
    chain.push_back(idOf(lv.directory.st));
    for (const Name& name : lv.order) {
        if (stopNow())
            break;
        examine(depth, name);
    }
    chain.pop_back();
    closedir(lv.dir);
    lv.dir = nullptr;
    if (!stopNow())
        visitor->leaveDirectory(lv.directory);
}

void SourceWalker::Private::examine(size_t depth, const Name& n)
{
    Level& lv = level(depth);
    const char* name = lv.names.data() + n.offset;
    WalkEntry& item = lv.item;
    item.path.resize(lv.prefixSize);
    item.path.append(name, int(n.size));

    // A source met here is filtered by nothing but the excluded paths.
    const bool spared = !nested.empty() && isNestedSource(item.path);
    if (options.skipHidden && name[0] == '.' && !spared)
        return;
    if (!excluded.empty() && isExcluded(item.path))
        return;

    const int dirFd = dirfd(lv.dir);
    if (fstatat(dirFd, name, &item.st, AT_SYMLINK_NOFOLLOW) != 0) {
        int error = errno;
        if (error == ENOENT) {
            visitor->vanished(item.path, QStringLiteral("vanished before it was read"));
        } else {
            visitor->problem(item.path, QStringLiteral("cannot be read: ") + errorText(error));
        }
        return;
    }

    const mode_t type = item.st.st_mode & S_IFMT;
    if (type == S_IFDIR) {
        if (spared || folderNameWanted(name))
            takeFolder(depth, name, item.st, false);
        return;
    }
    if (type == S_IFSOCK)
        return;
    if (type == S_IFLNK) {
        takeLink(depth, name, item.st, spared);
        return;
    }
    if (!spared && !fileNameWanted(name))
        return;
    if (isInUse(item.st)) {
        visitor->problem(item.path, QStringLiteral("in use by another process"));
        return;
    }
    item.linkTarget.resize(0);
    report(item, name, int(n.size));
}

// Opens and walks the folder `name` of level(depth), whose path is already in
// that level's item. follow: name is a link followed to the folder.
void SourceWalker::Private::takeFolder(size_t depth, const char* name, const struct stat& st,
                                       bool follow)
{
    Level& lv = level(depth);
    if (isOnChain(st)) {
        visitor->problem(lv.item.path, follow ? QStringLiteral("link leads back into a folder "
                                                               "being walked")
                                              : QStringLiteral("folder loops back into a folder "
                                                               "being walked"));
        return;
    }
    const int flags = O_RDONLY | O_DIRECTORY | O_CLOEXEC | (follow ? 0 : O_NOFOLLOW);
    int fd = openat(dirfd(lv.dir), name, flags);
    if (fd < 0) {
        int error = errno;
        visitor->problem(lv.item.path,
                         error == ENOENT ? QStringLiteral("vanished before it was read")
                                         : QStringLiteral("cannot be opened: ") + errorText(error));
        return;
    }
    Level& child = level(depth + 1); // may move levels' pointers, never the levels
    assignBytes(child.directory.path, lv.item.path.constData(), lv.item.path.size());
    assignBytes(child.directory.name, name, int(strlen(name)));
    child.directory.st = st;
    child.directory.linkTarget.resize(0);
    walkFolder(depth + 1, fd, follow || st.st_dev != lv.directory.st.st_dev);
}

void SourceWalker::Private::takeLink(size_t depth, const char* name, struct stat& st, bool spared)
{
    Level& lv = level(depth);
    WalkEntry& item = lv.item;
    const int dirFd = dirfd(lv.dir);
    switch (mode) {
    case SymlinkBackupMode::Ignore:
        return;
    case SymlinkBackupMode::CurrentPlace: {
        struct stat target;
        if (!statTarget(dirFd, name, item.path, target))
            return;
        if (S_ISDIR(target.st_mode)) {
            if (spared || folderNameWanted(name))
                takeFolder(depth, name, target, true);
            return;
        }
        if (S_ISSOCK(target.st_mode) || !(spared || fileNameWanted(name)))
            return;
        if (isInUse(target)) {
            visitor->problem(item.path, QStringLiteral("in use by another process"));
            return;
        }
        st = target;
        item.linkTarget.resize(0);
        report(item, name, int(strlen(name)));
        return;
    }
    case SymlinkBackupMode::SymlinkOnly:
    case SymlinkBackupMode::OriginalPlaces:
    case SymlinkBackupMode::OriginalPlaceAndSymlink:
        break;
    }

    if (mode != SymlinkBackupMode::OriginalPlaces && (spared || fileNameWanted(name))) {
        if (!readLink(dirFd, name, item.linkTarget)) {
            visitor->problem(item.path, QStringLiteral("cannot be read: ") + errorText(errno));
            return;
        }
        report(item, name, int(strlen(name)));
    }
    if (mode == SymlinkBackupMode::SymlinkOnly)
        return;
    struct stat target;
    if (!statTarget(dirFd, name, item.path, target))
        return;
    if (spared || (S_ISDIR(target.st_mode) ? folderNameWanted(name) : fileNameWanted(name)))
        queueTarget(item.path);
}

SourceWalker::SourceWalker(const WalkOptions& options) : d(new Private(options)) {}

SourceWalker::~SourceWalker()
{
    delete d;
}

void SourceWalker::walk(WalkVisitor* visitor)
{
    d->walk(visitor);
}

} // namespace Orv::Engine
