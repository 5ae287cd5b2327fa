#include "service/engine/EntryNodes.h"

#include <sys/stat.h>

namespace Orv::Engine {

using Kel::Archive::Node;

namespace {

qint64 nanoseconds(const struct timespec& t)
{
    return qint64(t.tv_sec) * 1000000000 + t.tv_nsec;
}

} // namespace

QString pathText(const QByteArray& path)
{
    return QString::fromLocal8Bit(path);
}

Node nodeOf(const WalkEntry& entry)
{
    const struct stat& st = entry.st;
    Node n;
    n.name = entry.name;
    if (S_ISDIR(st.st_mode)) {
        n.type = Node::Type::Directory;
    } else if (S_ISLNK(st.st_mode)) {
        n.type = Node::Type::Symlink;
    } else if (S_ISFIFO(st.st_mode)) {
        n.type = Node::Type::Fifo;
    } else if (S_ISCHR(st.st_mode)) {
        n.type = Node::Type::CharDevice;
    } else if (S_ISBLK(st.st_mode)) {
        n.type = Node::Type::BlockDevice;
    }
    n.mode = st.st_mode & 07777;
    n.uid = st.st_uid;
    n.gid = st.st_gid;
    n.mtimeNs = nanoseconds(st.st_mtim);
    n.ctimeNs = nanoseconds(st.st_ctim);
    n.device = st.st_dev;
    n.inode = st.st_ino;
    n.links = quint32(st.st_nlink);
    n.size = n.isFile() ? quint64(st.st_size) : 0;
    n.rdev = st.st_rdev;
    if (n.type == Node::Type::Symlink) {
        n.linkTarget = entry.linkTarget;
        n.size = quint64(entry.linkTarget.size());
    }
    return n;
}

bool selected(const QByteArray& path, const QList<QByteArray>& paths)
{
    if (paths.isEmpty()) {
        return true;
    }
    for (const QByteArray& p : paths) {
        if (path == p || path.startsWith(p.endsWith('/') ? p : p + '/') || p == "/") {
            return true;
        }
    }
    return false;
}

// Whether the folder lies on the way to a chosen path (so it is walked).
bool onTheWay(const QByteArray& path, const QList<QByteArray>& paths)
{
    for (const QByteArray& p : paths) {
        if (p.startsWith(path == "/" ? path : path + '/')) {
            return true;
        }
    }
    return false;
}

} // namespace Orv::Engine
