#pragma once

#include "kelBackupFormat/Node.h"
#include "orvRepository/Generation.h"

#include <QList>
#include <QMap>

namespace Orv::Repository {

// One entry of a folder in a restore point.
struct ContentEntry
{
    QByteArray path; // absolute, as it was backed up
    Kel::Archive::Node node;
};

// Looks into one restore point by path: what a folder holds (paged), and
// whether paths exist. Folder listings read on the way are kept for the next
// call, so that paging through a large folder reads it once.
class PointBrowser
{
public:
    PointBrowser(Generation& generation, const Kel::Archive::PointRecord& point);

    // The entries of the folder at path ("/" for the top) in byte order of
    // their names, from offset on, at most limit of them (all when limit is
    // not positive). *next is the offset after the last one returned, or -1
    // when the folder has no more.
    Status list(const QByteArray& path, int offset, int limit, QList<ContentEntry>* entries,
                int* next);
    // For each path, whether the restore point holds it.
    Status exists(const QList<QByteArray>& paths, QList<bool>* found);
    // The node at path; *found tells whether there is one.
    Status node(const QByteArray& path, Kel::Archive::Node* node, bool* found);

private:
    Status folder(const QByteArray& path, const QVector<Kel::Archive::Node>** nodes, bool* found);

    Generation::Reader m_reader;
    QByteArray m_root;
    QMap<QByteArray, QVector<Kel::Archive::Node>> m_folders;
};

// The word a listing shows for a kind of entry.
QString typeName(Kel::Archive::Node::Type type);

} // namespace Orv::Repository
