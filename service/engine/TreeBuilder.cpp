#include "service/engine/TreeBuilder.h"

#include "service/engine/EntryNodes.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Orv::Engine {

using namespace Kel::Archive;
using Orv::Repository::RunWriter;
using Orv::Repository::Status;

namespace {

constexpr int kMaxProblems = 100;
// Bytes a file is read ahead of the chunker: enough to find most cut points
// at once; the buffer grows to the longest chunk only when it must.
constexpr std::size_t kLookahead = 2 * 1024 * 1024;

// Whether a file is as it was in the previous restore point, so that its
// chunks can be taken over without reading it.
bool unchanged(const Node& now, const Node* before)
{
    return before && before->isFile() && before->size == now.size &&
           before->mtimeNs == now.mtimeNs && before->ctimeNs == now.ctimeNs &&
           before->inode == now.inode && before->device == now.device;
}

const Node* findNode(const QVector<Node>& nodes, const QByteArray& name)
{
    auto it = std::lower_bound(nodes.begin(), nodes.end(), name,
                               [](const Node& n, const QByteArray& key) { return n.name < key; });
    return it != nodes.end() && it->name == name ? &*it : nullptr;
}

} // namespace

TreeBuilder::TreeBuilder(const RunDescription& description, RunProgress& progress,
                         const std::atomic_bool& stop, RunWriter& writer, ChunkPipeline& pipeline)
    : m_description(description), m_progress(progress), m_stop(stop), m_writer(writer),
      m_pipeline(pipeline), m_reader(writer.generation()), m_treeWorker(writer.worker()),
      m_chunker(writer.chunkerSeed())
{
    if (const PointRecord* previous = writer.previous()) {
        m_previousRoot = previous->root;
    }
}

bool TreeBuilder::stopRequested() const
{
    return m_stop || !failure.ok() || !m_pipeline.failure().ok();
}

void TreeBuilder::beginRoot(const WalkEntry& root)
{
    m_rootPrevious = previousAt(root.path);
    m_haveRootPrevious = true;
}

void TreeBuilder::endRoot(const WalkEntry& root)
{
    if (!m_rootNode) {
        return;
    }
    // A root inside an earlier one (a source below a folder the outer
    // walk left out) is grafted into it once the walk is over.
    for (auto it = m_roots.cbegin(); it != m_roots.cend(); ++it) {
        if (it.key() == "/" || root.path.startsWith(it.key() + '/')) {
            m_grafts.append({root.path, *m_rootNode});
            m_rootNode.reset();
            return;
        }
    }
    // A root that holds earlier roots supersedes them.
    const QByteArray below = root.path == "/" ? QByteArray("/") : root.path + '/';
    for (auto it = m_roots.begin(); it != m_roots.end();) {
        it = it.key().startsWith(below) ? m_roots.erase(it) : std::next(it);
    }
    m_roots.insert(root.path, *m_rootNode);
    m_rootNode.reset();
}

void TreeBuilder::enterDirectory(const WalkEntry& directory)
{
    Frame frame;
    frame.node = nodeOf(directory);
    frame.path = directory.path;
    const Node* before = previousFor(directory.name);
    if (before && before->isDirectory()) {
        frame.hasPrevious = readTree(before->subtree, &frame.previous);
    }
    m_frames.push_back(std::move(frame));
    countSeen(0);
}

void TreeBuilder::leaveDirectory(const WalkEntry&)
{
    Frame frame = std::move(m_frames.back());
    m_frames.pop_back();
    if (!finishFiles(frame)) {
        return;
    }
    if (frame.nodes.isEmpty() && !m_description.keepEmptyFolders) {
        return;
    }
    QByteArray id;
    const Status status = m_treeWorker->store(BlobType::Tree, encodeTree(frame.nodes), &id);
    if (!status.ok()) {
        failure = status;
        return;
    }
    frame.node.subtree = id;
    place(std::move(frame.node));
}

void TreeBuilder::entry(const WalkEntry& entry)
{
    Node node = nodeOf(entry);
    countSeen(node.size);
    if (!node.isFile()) {
        place(std::move(node));
        return;
    }
    const Node* before = previousFor(entry.name);
    if (unchanged(node, before)) {
        node.chunks = before->chunks;
        ++files;
        bytes += node.size;
        place(std::move(node));
        return;
    }
    auto slot = std::make_shared<FileSlot>();
    if (!readFile(entry, &node, slot)) {
        return;
    }
    ++m_progress.filesRead;
    if (m_frames.empty()) {
        finishRootFile(std::move(node), slot);
        return;
    }
    m_frames.back().pending.append({m_frames.back().nodes.size(), slot});
    m_frames.back().nodes.append(std::move(node));
}

void TreeBuilder::problem(const QByteArray& path, const QString& reason)
{
    ++warnings;
    note(QStringLiteral("%1: %2").arg(pathText(path), reason));
}

Status TreeBuilder::graft()
{
    for (const auto& [path, node] : std::as_const(m_grafts)) {
        for (auto it = m_roots.begin(); it != m_roots.end(); ++it) {
            const QByteArray below = it.key() == "/" ? it.key() : it.key() + '/';
            if (!path.startsWith(below)) {
                continue;
            }
            const QList<QByteArray> parts = path.mid(below.size()).split('/');
            Node holder = it.value();
            const Status status = graftInto(&holder, below, parts, 0, node);
            if (!status.ok()) {
                return status;
            }
            it.value() = holder;
            break;
        }
    }
    m_grafts.clear();
    return Status::success();
}

Status TreeBuilder::finish(QByteArray* rootId)
{
    if (!failure.ok()) {
        return failure;
    }
    if (m_roots.contains("/")) {
        *rootId = m_roots.value("/").subtree;
        return Status::success();
    }
    return buildAbove("/", rootId);
}

void TreeBuilder::note(const QString& text)
{
    if (problems.size() < kMaxProblems) {
        problems.append(text);
    }
}

void TreeBuilder::countSeen(quint64 size)
{
    ++m_progress.filesSeen;
    m_progress.bytesSeen += size;
}

const Node* TreeBuilder::previousFor(const QByteArray& name) const
{
    if (m_frames.empty()) {
        return m_haveRootPrevious && m_rootPrevious ? &*m_rootPrevious : nullptr;
    }
    const Frame& frame = m_frames.back();
    return frame.hasPrevious ? findNode(frame.previous, name) : nullptr;
}

std::optional<Node> TreeBuilder::previousAt(const QByteArray& path)
{
    if (m_previousRoot.isEmpty()) {
        return std::nullopt;
    }
    QVector<Node> nodes;
    if (!readTree(m_previousRoot, &nodes)) {
        return std::nullopt;
    }
    if (path == "/") {
        Node root;
        root.type = Node::Type::Directory;
        root.subtree = m_previousRoot;
        return root;
    }
    const QList<QByteArray> parts = path.mid(1).split('/');
    for (int i = 0; i < parts.size(); ++i) {
        const Node* node = findNode(nodes, parts.at(i));
        if (!node) {
            return std::nullopt;
        }
        if (i + 1 == parts.size()) {
            return *node;
        }
        const QByteArray subtree = node->subtree;
        if (!node->isDirectory() || !readTree(subtree, &nodes)) {
            return std::nullopt;
        }
    }
    return std::nullopt;
}

bool TreeBuilder::readTree(const QByteArray& id, QVector<Node>* nodes)
{
    return m_reader.tree(id, nodes).ok();
}

void TreeBuilder::place(Node node)
{
    if (m_frames.empty()) {
        m_rootNode = std::move(node);
    } else {
        m_frames.back().nodes.append(std::move(node));
    }
}

bool TreeBuilder::finishFiles(Frame& frame)
{
    if (frame.pending.isEmpty()) {
        return true;
    }
    const Status status = m_pipeline.drain();
    if (!status.ok()) {
        failure = status;
        return false;
    }
    QVector<Node> kept;
    kept.reserve(frame.nodes.size());
    int next = 0;
    for (int i = 0; i < frame.nodes.size(); ++i) {
        Node& node = frame.nodes[i];
        if (next < frame.pending.size() && frame.pending.at(next).index == i) {
            node.chunks = std::move(frame.pending.at(next).slot->ids);
            ++next;
        }
        kept.append(std::move(node));
    }
    frame.nodes = std::move(kept);
    frame.pending.clear();
    return true;
}

void TreeBuilder::finishRootFile(Node node, const std::shared_ptr<FileSlot>& slot)
{
    const Status status = m_pipeline.drain();
    if (!status.ok()) {
        failure = status;
        return;
    }
    node.chunks = std::move(slot->ids);
    m_rootNode = std::move(node);
}

bool TreeBuilder::readFile(const WalkEntry& entry, Node* node,
                           const std::shared_ptr<FileSlot>& slot)
{
    int fd = ::open(entry.path.constData(), O_RDONLY | O_CLOEXEC | O_NOATIME);
    if (fd < 0 && errno == EPERM) {
        fd = ::open(entry.path.constData(), O_RDONLY | O_CLOEXEC);
    }
    if (fd < 0) {
        const int error = errno;
        ++warnings;
        ++m_progress.filesFailed;
        note(QStringLiteral("%1: %2").arg(pathText(entry.path),
                                          QString::fromLocal8Bit(strerror(error))));
        return false;
    }
    posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
    QString error;
    const quint64 size = readChunks(fd, node->size, slot, &error);
    ::close(fd);
    if (!error.isEmpty()) {
        ++errors;
        ++m_progress.filesFailed;
        note(QStringLiteral("%1: %2").arg(pathText(entry.path), error));
        return false;
    }
    // A file that grew or shrank while it was read is kept as read.
    node->size = size;
    ++files;
    bytes += size;
    return true;
}

quint64 TreeBuilder::readChunks(int fd, quint64 expected, const std::shared_ptr<FileSlot>& slot,
                                QString* error)
{
    // Small files: one read into a buffer of their size, handed on whole.
    if (expected < Kel::Streams::Chunker::kMinSize) {
        QByteArray data = m_pipeline.buffer(int(expected) + 1);
        qint64 filled = 0;
        for (;;) {
            if (filled == data.size()) {
                data.resize(data.size() * 2);
            }
            const ssize_t n = ::read(fd, data.data() + filled, std::size_t(data.size() - filled));
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                *error = QString::fromLocal8Bit(strerror(errno));
                return 0;
            }
            if (n == 0) {
                break;
            }
            filled += n;
        }
        data.resize(int(filled));
        if (filled > 0) {
            m_progress.bytesRead += quint64(filled);
            if (filled < qint64(Kel::Streams::Chunker::kMinSize)) {
                slot->grow(1);
                m_pipeline.submit(std::move(data), slot, 0);
                return quint64(filled);
            }
            return chunkBuffer(data, slot);
        }
        return 0;
    }
    return streamChunks(fd, slot, error);
}

quint64 TreeBuilder::chunkBuffer(const QByteArray& data, const std::shared_ptr<FileSlot>& slot)
{
    const auto* p = reinterpret_cast<const uchar*>(data.constData());
    std::size_t offset = 0;
    QVector<std::pair<std::size_t, std::size_t>> cuts;
    while (offset < std::size_t(data.size())) {
        const std::size_t length = m_chunker.cut(p + offset, std::size_t(data.size()) - offset);
        cuts.append({offset, length});
        offset += length;
    }
    slot->grow(cuts.size());
    for (int i = 0; i < cuts.size(); ++i) {
        m_pipeline.submit(data.mid(int(cuts[i].first), int(cuts[i].second)), slot, i);
    }
    return quint64(data.size());
}

quint64 TreeBuilder::streamChunks(int fd, const std::shared_ptr<FileSlot>& slot, QString* error)
{
    if (m_buffer.size() < 2 * kLookahead) {
        m_buffer.resize(2 * kLookahead);
    }
    std::size_t start = 0;
    std::size_t end = 0;
    bool eof = false;
    quint64 total = 0;
    std::size_t want = kLookahead;
    int index = 0;
    for (;;) {
        while (!eof && end - start < want) {
            const std::size_t room = std::min(kLookahead, want - (end - start));
            if (end + room > m_buffer.size()) {
                std::memmove(m_buffer.data(), m_buffer.data() + start, end - start);
                end -= start;
                start = 0;
                if (end + room > m_buffer.size()) {
                    m_buffer.resize(end + room);
                }
            }
            const ssize_t n = ::read(fd, m_buffer.data() + end, room);
            if (n < 0 && errno == EINTR) {
                continue;
            }
            if (n < 0) {
                *error = QString::fromLocal8Bit(strerror(errno));
                return 0;
            }
            eof = n == 0;
            end += std::size_t(n);
            m_progress.bytesRead += quint64(n);
        }
        const std::size_t available = end - start;
        if (available == 0) {
            break;
        }
        const char* at = m_buffer.data() + start;
        const std::size_t length = m_chunker.cut(reinterpret_cast<const uchar*>(at), available);
        if (length == available && !eof && available < Kel::Streams::Chunker::kMaxSize) {
            // No cut point yet: read further before deciding.
            want = std::min(available + kLookahead, Kel::Streams::Chunker::kMaxSize);
            continue;
        }
        want = kLookahead;
        slot->grow(index + 1);
        QByteArray chunk = m_pipeline.buffer(int(length));
        std::memcpy(chunk.data(), at, length);
        m_pipeline.submit(std::move(chunk), slot, index++);
        start += length;
        total += length;
        if (stopRequested()) {
            *error = QStringLiteral("stopped");
            return 0;
        }
    }
    return total;
}

Status TreeBuilder::graftInto(Node* folder, const QByteArray& folderPath,
                              const QList<QByteArray>& parts, int at, const Node& node)
{
    QVector<Node> nodes;
    Status status = m_reader.tree(folder->subtree, &nodes);
    if (!status.ok()) {
        return status;
    }
    Node child;
    const QByteArray& name = parts.at(at);
    auto it = std::lower_bound(nodes.begin(), nodes.end(), name,
                               [](const Node& n, const QByteArray& key) { return n.name < key; });
    const bool present = it != nodes.end() && it->name == name;
    if (at + 1 == parts.size()) {
        child = node;
        child.name = name;
    } else {
        const QByteArray childPath = folderPath + name;
        if (present && it->isDirectory()) {
            child = *it;
        } else {
            child = folderNode(childPath, name);
            status = m_treeWorker->store(BlobType::Tree, encodeTree({}), &child.subtree);
            if (!status.ok()) {
                return status;
            }
        }
        status = graftInto(&child, childPath + '/', parts, at + 1, node);
        if (!status.ok()) {
            return status;
        }
    }
    if (present) {
        *it = child;
    } else {
        nodes.insert(it, child);
    }
    return m_treeWorker->store(BlobType::Tree, encodeTree(nodes), &folder->subtree);
}

Node TreeBuilder::folderNode(const QByteArray& path, const QByteArray& name)
{
    struct stat st;
    WalkEntry e;
    e.path = path;
    e.name = name;
    if (::lstat(path.constData(), &st) == 0 && S_ISDIR(st.st_mode)) {
        e.st = st;
        return nodeOf(e);
    }
    Node folder;
    folder.name = name;
    folder.type = Node::Type::Directory;
    folder.mode = 0755;
    return folder;
}

Status TreeBuilder::buildAbove(const QByteArray& path, QByteArray* id)
{
    const QByteArray below = path == "/" ? QByteArray("/") : path + '/';
    QMap<QByteArray, Node> children;
    for (auto it = m_roots.cbegin(); it != m_roots.cend(); ++it) {
        if (!it.key().startsWith(below) || it.key() == path) {
            continue;
        }
        const QByteArray rest = it.key().mid(below.size());
        const int slash = rest.indexOf('/');
        if (slash < 0) {
            children.insert(rest, it.value());
            continue;
        }
        const QByteArray name = rest.left(slash);
        if (children.contains(name)) {
            continue;
        }
        const QByteArray folderPath = below + name;
        Node folder = folderNode(folderPath, name);
        const Status status = buildAbove(folderPath, &folder.subtree);
        if (!status.ok()) {
            return status;
        }
        children.insert(name, folder);
    }
    QVector<Node> nodes;
    for (auto it = children.begin(); it != children.end(); ++it) {
        nodes.append(it.value());
    }
    return m_treeWorker->store(BlobType::Tree, encodeTree(nodes), id);
}

} // namespace Orv::Engine
