#include "kelBackupFormat/Tree.h"

#include "kelBackupFormat/Bytes.h"

namespace Kel::Archive {

namespace {

constexpr char kMagic[] = "ORT1";
constexpr int kIdSize = 32;

} // namespace

bool isValidName(const QByteArray& name)
{
    return !name.isEmpty() && name != "." && name != ".." && !name.contains('/') &&
           !name.contains('\0');
}

QByteArray encodeTree(const QVector<Node>& nodes)
{
    QByteArray out;
    out.reserve(16 + nodes.size() * 96);
    out.append(kMagic, 4);
    ByteWriter w(&out);
    w.number(quint64(nodes.size()));
    for (const Node& n : nodes) {
        w.bytes(n.name);
        w.byte(quint8(n.type));
        w.number(n.mode);
        w.number(n.uid);
        w.number(n.gid);
        w.signedNumber(n.mtimeNs);
        w.signedNumber(n.ctimeNs);
        w.number(n.device);
        w.number(n.inode);
        w.number(n.links);
        w.number(n.size);
        w.number(n.rdev);
        w.bytes(n.linkTarget);
        w.number(quint64(n.chunks.size()));
        for (const QByteArray& id : n.chunks) {
            w.raw(id);
        }
        w.bytes(n.subtree);
    }
    return out;
}

bool decodeTree(const QByteArray& bytes, QVector<Node>* nodes)
{
    nodes->clear();
    if (!bytes.startsWith(QByteArray(kMagic, 4))) {
        return false;
    }
    ByteReader r(bytes.constData() + 4, bytes.size() - 4);
    const quint64 count = r.number();
    // Every node takes at least 16 bytes: refuse counts the input cannot hold
    // before reserving memory for them.
    if (!r.ok() || count > quint64(r.remaining() / 16 + 1)) {
        return false;
    }
    nodes->reserve(int(count));
    for (quint64 i = 0; i < count && r.ok(); ++i) {
        Node n;
        n.name = r.bytes();
        const quint8 type = r.byte();
        if (type > quint8(Node::Type::BlockDevice)) {
            return false;
        }
        n.type = Node::Type(type);
        n.mode = quint32(r.number());
        n.uid = quint32(r.number());
        n.gid = quint32(r.number());
        n.mtimeNs = r.signedNumber();
        n.ctimeNs = r.signedNumber();
        n.device = r.number();
        n.inode = r.number();
        n.links = quint32(r.number());
        n.size = r.number();
        n.rdev = r.number();
        n.linkTarget = r.bytes();
        const quint64 chunks = r.number();
        if (chunks > quint64(r.remaining() / kIdSize)) {
            return false;
        }
        n.chunks.reserve(int(chunks));
        for (quint64 c = 0; c < chunks; ++c) {
            n.chunks.append(r.raw(kIdSize));
        }
        n.subtree = r.bytes();
        if (!isValidName(n.name) || (!nodes->isEmpty() && nodes->last().name >= n.name)) {
            return false;
        }
        if (n.isDirectory() != (n.subtree.size() == kIdSize)) {
            return false;
        }
        nodes->append(std::move(n));
    }
    return r.ok() && r.atEnd();
}

} // namespace Kel::Archive
