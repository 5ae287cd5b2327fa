#pragma once

#include <QByteArray>
#include <QVector>

namespace Kel::Archive {

// One entry of a backed-up folder as a restore point keeps it: the name as
// the file system gave its bytes, the metadata a restore puts back, the
// identity used to see that a file has not changed since the last run, and
// where the content is (chunk ids of a file, the tree id of a folder).
struct Node
{
    enum class Type : quint8
    {
        File = 0,
        Directory = 1,
        Symlink = 2,
        Fifo = 3,
        CharDevice = 4,
        BlockDevice = 5,
    };

    QByteArray name;
    Type type = Type::File;
    quint32 mode = 0; // permission bits with setuid, setgid and sticky (st_mode & 07777)
    quint32 uid = 0;
    quint32 gid = 0;
    qint64 mtimeNs = 0; // modification time, nanoseconds since the epoch
    qint64 ctimeNs = 0; // status change time: part of the unchanged-file test only
    quint64 device = 0; // st_dev and st_ino: unchanged-file test and hard links
    quint64 inode = 0;
    quint32 links = 1;          // st_nlink; above 1 for a file, the entry may be a hard link
    quint64 size = 0;           // bytes of content (files), length of the target (symlinks)
    quint64 rdev = 0;           // character and block devices
    QByteArray linkTarget;      // symlinks
    QVector<QByteArray> chunks; // files: the ids of the content's chunks, in order
    QByteArray subtree;         // folders: the id of the tree that lists the content

    bool isDirectory() const { return type == Type::Directory; }
    bool isFile() const { return type == Type::File; }
};

} // namespace Kel::Archive
