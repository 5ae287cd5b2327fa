#include "orvRepository/PointBrowser.h"

#include <algorithm>

namespace Orv::Repository {

using Kel::Archive::Node;

namespace {

// Folder listings kept between calls.
constexpr int kKeptFolders = 32;

QByteArray normalised(QByteArray path)
{
    while (path.size() > 1 && path.endsWith('/')) {
        path.chop(1);
    }
    return path.isEmpty() ? QByteArray("/") : path;
}

} // namespace

QString typeName(Node::Type type)
{
    switch (type) {
    case Node::Type::File:
        return QStringLiteral("File");
    case Node::Type::Directory:
        return QStringLiteral("Folder");
    case Node::Type::Symlink:
        return QStringLiteral("Symlink");
    case Node::Type::Fifo:
        return QStringLiteral("Fifo");
    case Node::Type::CharDevice:
        return QStringLiteral("CharDevice");
    case Node::Type::BlockDevice:
        return QStringLiteral("BlockDevice");
    }
    return QString();
}

PointBrowser::PointBrowser(Generation& generation, const Kel::Archive::PointRecord& point)
    : m_reader(generation), m_root(point.root)
{
}

Status PointBrowser::folder(const QByteArray& path, const QVector<Node>** nodes, bool* found)
{
    *found = false;
    const auto kept = m_folders.constFind(path);
    if (kept != m_folders.constEnd()) {
        *nodes = &kept.value();
        *found = true;
        return Status::success();
    }
    QByteArray tree = m_root;
    if (path != "/") {
        Node node;
        const Status status = this->node(path, &node, found);
        if (!status.ok() || !*found) {
            return status;
        }
        if (!node.isDirectory()) {
            *found = false;
            return Status::success();
        }
        tree = node.subtree;
    }
    QVector<Node> listing;
    const Status status = m_reader.tree(tree, &listing);
    if (!status.ok()) {
        return status;
    }
    if (m_folders.size() >= kKeptFolders) {
        m_folders.clear();
    }
    *nodes = &m_folders.insert(path, std::move(listing)).value();
    *found = true;
    return Status::success();
}

Status PointBrowser::node(const QByteArray& path, Node* node, bool* found)
{
    *found = false;
    const QByteArray clean = normalised(path);
    if (!clean.startsWith('/') || clean == "/") {
        return Status::success();
    }
    const int slash = clean.lastIndexOf('/');
    const QByteArray parent = slash == 0 ? QByteArray("/") : clean.left(slash);
    const QByteArray name = clean.mid(slash + 1);
    const QVector<Node>* nodes = nullptr;
    bool parentFound = false;
    const Status status = folder(parent, &nodes, &parentFound);
    if (!status.ok() || !parentFound) {
        return status;
    }
    const auto it =
        std::lower_bound(nodes->begin(), nodes->end(), name,
                         [](const Node& n, const QByteArray& key) { return n.name < key; });
    if (it != nodes->end() && it->name == name) {
        *node = *it;
        *found = true;
    }
    return Status::success();
}

Status PointBrowser::list(const QByteArray& path, int offset, int limit,
                          QList<ContentEntry>* entries, int* next)
{
    entries->clear();
    *next = -1;
    const QByteArray clean = normalised(path);
    const QVector<Node>* nodes = nullptr;
    bool found = false;
    const Status status = folder(clean, &nodes, &found);
    if (!status.ok()) {
        return status;
    }
    if (!found) {
        return failure(QStringLiteral("The restore point holds no folder %1.")
                           .arg(QString::fromLocal8Bit(clean)));
    }
    const int first = std::max(0, offset);
    const int end =
        limit > 0 ? std::min<qint64>(nodes->size(), qint64(first) + limit) : nodes->size();
    const QByteArray prefix = clean == "/" ? clean : clean + '/';
    for (int i = first; i < end; ++i) {
        entries->append({prefix + nodes->at(i).name, nodes->at(i)});
    }
    *next = end < nodes->size() ? end : -1;
    return Status::success();
}

Status PointBrowser::exists(const QList<QByteArray>& paths, QList<bool>* found)
{
    found->clear();
    for (const QByteArray& path : paths) {
        Node node;
        bool there = normalised(path) == "/";
        if (!there) {
            const Status status = this->node(path, &node, &there);
            if (!status.ok()) {
                return status;
            }
        }
        found->append(there);
    }
    return Status::success();
}

} // namespace Orv::Repository
