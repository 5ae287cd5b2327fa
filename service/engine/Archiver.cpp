#include "service/engine/Archiver.h"

#include "kelBackupFormat/Tree.h"
#include "kelStreams/BandwidthLimiter.h"
#include "kelStreams/Chunker.h"
#include "orvRepository/RunWriter.h"
#include "service/engine/EntryNodes.h"

#include <QMap>
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <optional>
#include <pthread.h>
#include <set>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Orv::Engine {

using namespace Kel::Archive;
using Orv::Repository::RunWriter;
using Orv::Repository::Status;

namespace {

constexpr int kMaxProblems = 100;
// Bytes of chunks in flight per worker thread.
constexpr qint64 kChunksPerThread = 4 * 1024 * 1024;
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

// The chunk ids of one file: the reading thread adds places as it cuts, the
// workers fill them in; the mutex keeps the two apart.
struct FileSlot
{
    std::mutex mutex;
    QVector<QByteArray> ids;

    void grow(int size)
    {
        std::lock_guard lock(mutex);
        ids.resize(size);
    }
    void set(int index, QByteArray id)
    {
        std::lock_guard lock(mutex);
        ids[index] = std::move(id);
    }
};

// Stores chunks on the configured number of threads, each with its own
// packs. Holds at most the memory limit's worth of chunks in flight.
class Archiver::Pipeline
{
public:
    Pipeline(RunWriter& writer, int threads, qint64 limit) : m_limit(std::max<qint64>(limit, 1))
    {
        for (int i = 0; i < std::max(1, threads); ++i) {
            m_workers.emplace_back([this, w = writer.worker()]() mutable { loop(*w); });
        }
    }

    ~Pipeline() { finish(); }

    // Small chunks (small files) travel in batches, so that the threads hand
    // over work, and wake each other, once per batch rather than per file.
    // Only the reading thread calls submit, drain, flush and finish.
    void submit(QByteArray data, std::shared_ptr<FileSlot> slot, int index)
    {
        m_batchCost += cost(data);
        m_batch.push_back({std::move(data), std::move(slot), index});
        if (m_batchCost >= kBatchBytes || m_batch.size() >= kBatchItems) {
            pushBatch();
        }
    }

    // A buffer for a chunk of the given size, from those the workers gave
    // back: chunks in flight reuse a few buffers instead of allocating (and
    // faulting in) fresh memory for each.
    QByteArray buffer(int size)
    {
        if (size < kPooled) {
            return QByteArray(size, Qt::Uninitialized);
        }
        QByteArray data;
        {
            std::lock_guard lock(m_mutex);
            if (!m_spare.empty()) {
                data = std::move(m_spare.back());
                m_spare.pop_back();
            }
        }
        if (data.capacity() < size) {
            data = QByteArray();
            data.reserve(std::max(size, int(Kel::Streams::Chunker::kMinSize) * 3));
        }
        data.resize(size);
        return data;
    }

    // Waits until every submitted chunk is stored.
    Status drain()
    {
        pushBatch();
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_pending == 0; });
        return m_failure;
    }

    Status failure() const
    {
        std::lock_guard lock(m_mutex);
        return m_failure;
    }

    // Hands every worker's open pack to the uploads, the threads going on.
    Status flush()
    {
        std::unique_lock lock(m_mutex);
        m_flushes = int(m_workers.size());
        m_changed.notify_all();
        m_changed.wait(lock, [&] { return m_flushes == 0; });
        return m_failure;
    }

    // Stores what is left, flushes every worker's pack, ends the threads.
    Status finish()
    {
        pushBatch();
        {
            std::lock_guard lock(m_mutex);
            m_closing = true;
            m_changed.notify_all();
        }
        for (std::thread& t : m_workers) {
            t.join();
        }
        m_workers.clear();
        return failure();
    }

private:
    // Buffers this large go back to the pool; smaller ones are cheap to make.
    static constexpr int kPooled = 64 * 1024;

    // What a chunk holds of memory: its buffer's room, not just its bytes.
    static qint64 cost(const QByteArray& data) { return std::max(data.capacity(), data.size()); }

    // A batch closes at this many bytes or chunks.
    static constexpr qint64 kBatchBytes = 256 * 1024;
    static constexpr std::size_t kBatchItems = 64;

    struct Item
    {
        QByteArray data;
        std::shared_ptr<FileSlot> slot;
        int index;
    };
    struct Job
    {
        std::vector<Item> items;
        qint64 cost = 0;
    };

    void pushBatch()
    {
        if (m_batch.empty()) {
            return;
        }
        Job job{std::move(m_batch), m_batchCost};
        m_batch = {};
        m_batchCost = 0;
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] {
            return !m_failure.ok() || m_inFlight == 0 || m_inFlight + job.cost <= m_limit;
        });
        m_inFlight += job.cost;
        ++m_pending;
        m_jobs.push_back(std::move(job));
        m_changed.notify_all();
    }

    void loop(RunWriter::Worker& worker)
    {
        // Named so that an administrator's top tells the stages apart.
        pthread_setname_np(pthread_self(), "orv-pack");
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_changed.wait(lock, [&] {
                return m_closing || !m_jobs.empty() ||
                       (m_flushes > 0 && m_flushed.count(&worker) == 0);
            });
            if (m_jobs.empty() && m_flushes > 0 && m_flushed.insert(&worker).second) {
                lock.unlock();
                const Status status = worker.flush();
                lock.lock();
                if (!status.ok() && m_failure.ok()) {
                    m_failure = status;
                }
                if (--m_flushes == 0) {
                    m_flushed.clear();
                }
                m_changed.notify_all();
                continue;
            }
            if (m_jobs.empty()) {
                break;
            }
            Job job = std::move(m_jobs.front());
            m_jobs.pop_front();
            const bool skip = !m_failure.ok();
            lock.unlock();
            Status status;
            std::vector<QByteArray> spares;
            for (Item& item : job.items) {
                if (!skip && status.ok()) {
                    QByteArray id;
                    status = worker.store(BlobType::Data, item.data, &id);
                    item.slot->set(item.index, std::move(id));
                }
                if (item.data.capacity() >= kPooled && item.data.isDetached()) {
                    spares.push_back(std::move(item.data));
                }
            }
            const qint64 size = job.cost;
            job = Job();
            lock.lock();
            for (QByteArray& spare : spares) {
                if (m_spare.size() < 3) {
                    m_spare.push_back(std::move(spare));
                }
            }
            if (!status.ok() && m_failure.ok()) {
                m_failure = status;
            }
            m_inFlight -= size;
            --m_pending;
            m_changed.notify_all();
        }
        lock.unlock();
        const Status status = worker.flush();
        lock.lock();
        if (!status.ok() && m_failure.ok()) {
            m_failure = status;
        }
    }

    const qint64 m_limit;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<Job> m_jobs;
    std::vector<Item> m_batch; // the reading thread's own, not yet handed over
    qint64 m_batchCost = 0;
    std::vector<QByteArray> m_spare;
    qint64 m_inFlight = 0;
    int m_pending = 0;
    bool m_closing = false;
    int m_flushes = 0;                      // workers yet to flush
    std::set<RunWriter::Worker*> m_flushed; // workers that did
    Status m_failure;
    std::vector<std::thread> m_workers;
};

// Receives the walk, reads what changed, and builds the folder listings
// bottom-up as folders end. The roots' nodes wait in memory (there are few)
// until the walk is over; then the folders above them are made.
class Archiver::TreeBuilder : public WalkVisitor
{
public:
    TreeBuilder(Archiver& archiver, RunWriter& writer, Pipeline& pipeline)
        : m_archiver(archiver), m_writer(writer), m_pipeline(pipeline),
          m_reader(writer.generation()), m_treeWorker(writer.worker()),
          m_chunker(writer.chunkerSeed())
    {
        if (const PointRecord* previous = writer.previous()) {
            m_previousRoot = previous->root;
        }
    }

    int warnings = 0;
    int errors = 0;
    quint64 files = 0;
    quint64 bytes = 0;
    QStringList problems;
    Status failure;

    bool stopRequested() const override
    {
        return m_archiver.m_stop || !failure.ok() || !m_pipeline.failure().ok();
    }

    void beginRoot(const WalkEntry& root) override
    {
        m_rootPrevious = previousAt(root.path);
        m_haveRootPrevious = true;
    }

    void endRoot(const WalkEntry& root) override
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

    void enterDirectory(const WalkEntry& directory) override
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

    void leaveDirectory(const WalkEntry&) override
    {
        Frame frame = std::move(m_frames.back());
        m_frames.pop_back();
        if (!finishFiles(frame)) {
            return;
        }
        if (frame.nodes.isEmpty() && !m_archiver.m_description.keepEmptyFolders) {
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

    void entry(const WalkEntry& entry) override
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
        ++m_archiver.m_progress.filesRead;
        if (m_frames.empty()) {
            finishRootFile(std::move(node), slot);
            return;
        }
        m_frames.back().pending.append({m_frames.back().nodes.size(), slot});
        m_frames.back().nodes.append(std::move(node));
    }

    void problem(const QByteArray& path, const QString& reason) override
    {
        ++warnings;
        note(QStringLiteral("%1: %2").arg(pathText(path), reason));
    }

    // The id of the tree that holds every root at its absolute path.
    bool hasGrafts() const { return !m_grafts.isEmpty(); }

    // Puts the nested roots into the roots that hold them. The trees read
    // here were stored by this run: the caller waits for their upload first.
    Status graft()
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

    Status finish(QByteArray* rootId)
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

private:
    struct Pending
    {
        int index;
        std::shared_ptr<FileSlot> slot;
    };
    struct Frame
    {
        Node node;
        QByteArray path;
        QVector<Node> nodes;
        QVector<Pending> pending;
        QVector<Node> previous;
        bool hasPrevious = false;
    };

    void note(const QString& text)
    {
        if (problems.size() < kMaxProblems) {
            problems.append(text);
        }
    }

    void countSeen(quint64 size)
    {
        ++m_archiver.m_progress.filesSeen;
        m_archiver.m_progress.bytesSeen += size;
    }

    // The previous restore point's node for a name in the current folder (or
    // at the current root).
    const Node* previousFor(const QByteArray& name) const
    {
        if (m_frames.empty()) {
            return m_haveRootPrevious && m_rootPrevious ? &*m_rootPrevious : nullptr;
        }
        const Frame& frame = m_frames.back();
        return frame.hasPrevious ? findNode(frame.previous, name) : nullptr;
    }

    // The previous restore point's node at an absolute path, found by
    // descending from its root.
    std::optional<Node> previousAt(const QByteArray& path)
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

    bool readTree(const QByteArray& id, QVector<Node>* nodes)
    {
        return m_reader.tree(id, nodes).ok();
    }

    void place(Node node)
    {
        if (m_frames.empty()) {
            m_rootNode = std::move(node);
        } else {
            m_frames.back().nodes.append(std::move(node));
        }
    }

    // Waits for the folder's files to be stored and writes their chunk ids
    // into their nodes; files that failed leave the folder.
    bool finishFiles(Frame& frame)
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

    void finishRootFile(Node node, const std::shared_ptr<FileSlot>& slot)
    {
        const Status status = m_pipeline.drain();
        if (!status.ok()) {
            failure = status;
            return;
        }
        node.chunks = std::move(slot->ids);
        m_rootNode = std::move(node);
    }

    // Reads the file and hands its chunks to the pipeline. False when it could
    // not be read: counted and named, and the file is left out.
    bool readFile(const WalkEntry& entry, Node* node, const std::shared_ptr<FileSlot>& slot)
    {
        int fd = ::open(entry.path.constData(), O_RDONLY | O_CLOEXEC | O_NOATIME);
        if (fd < 0 && errno == EPERM) {
            fd = ::open(entry.path.constData(), O_RDONLY | O_CLOEXEC);
        }
        if (fd < 0) {
            const int error = errno;
            ++warnings;
            ++m_archiver.m_progress.filesFailed;
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
            ++m_archiver.m_progress.filesFailed;
            note(QStringLiteral("%1: %2").arg(pathText(entry.path), error));
            return false;
        }
        // A file that grew or shrank while it was read is kept as read.
        node->size = size;
        ++files;
        bytes += size;
        return true;
    }

    quint64 readChunks(int fd, quint64 expected, const std::shared_ptr<FileSlot>& slot,
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
                const ssize_t n =
                    ::read(fd, data.data() + filled, std::size_t(data.size() - filled));
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
                m_archiver.m_progress.bytesRead += quint64(filled);
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

    quint64 chunkBuffer(const QByteArray& data, const std::shared_ptr<FileSlot>& slot)
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

    // Large files: read ahead into one buffer, cut, and copy each chunk out.
    // The buffer starts at twice the look-ahead and grows only for a chunk
    // that needs more, so its pages stay few and warm.
    quint64 streamChunks(int fd, const std::shared_ptr<FileSlot>& slot, QString* error)
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
                m_archiver.m_progress.bytesRead += quint64(n);
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

    // Stores a new listing of the folder with the node placed at parts[at...],
    // making the folders between from the file system as they are.
    Status graftInto(Node* folder, const QByteArray& folderPath, const QList<QByteArray>& parts,
                     int at, const Node& node)
    {
        QVector<Node> nodes;
        Status status = m_reader.tree(folder->subtree, &nodes);
        if (!status.ok()) {
            return status;
        }
        Node child;
        const QByteArray& name = parts.at(at);
        auto it =
            std::lower_bound(nodes.begin(), nodes.end(), name,
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

    // A folder's node as the file system has it now.
    static Node folderNode(const QByteArray& path, const QByteArray& name)
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

    Status buildAbove(const QByteArray& path, QByteArray* id)
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

    Archiver& m_archiver;
    RunWriter& m_writer;
    Pipeline& m_pipeline;
    Orv::Repository::Generation::Reader m_reader;
    std::unique_ptr<RunWriter::Worker> m_treeWorker;
    Kel::Streams::Chunker m_chunker;
    std::vector<char> m_buffer;
    std::vector<Frame> m_frames;
    QByteArray m_previousRoot;
    std::optional<Node> m_rootPrevious;
    bool m_haveRootPrevious = false;
    std::optional<Node> m_rootNode;
    QMap<QByteArray, Node> m_roots;
    QVector<std::pair<QByteArray, Node>> m_grafts;

public:
    Status flushTrees() { return m_treeWorker->flush(); }
};

QDateTime RunDescription::Retention::cutoff(const QDateTime& now) const
{
    switch (unit) {
    case Unit::Day:
        return now.addDays(-count);
    case Unit::Week:
        return now.addDays(-7 * qint64(count));
    case Unit::Month:
        return now.addMonths(-count);
    case Unit::Year:
        return now.addYears(-count);
    }
    return now;
}

Archiver::Archiver(const Orv::Repository::Repository& repository, const RunDescription& description)
    : m_repository(repository), m_description(description)
{
}

Archiver::~Archiver() = default;

RunResult Archiver::run()
{
    RunResult result;
    m_progress.step = int(RunStep::Preparing);
    Kel::Streams::BandwidthLimiter limiter(m_description.bandwidth);
    Orv::Repository::RunSettings settings;
    settings.bunch = m_description.planId;
    settings.planName = m_description.planName;
    settings.compression = m_description.compression;
    settings.algorithm = m_description.algorithm;
    settings.password = m_description.password;
    settings.hint = m_description.hint;
    settings.forceFull = m_description.forceFull;
    settings.packSize = m_description.packSize;
    settings.uploadThreads = std::max(1, m_description.uploadThreads);
    settings.queuedPacks = settings.uploadThreads;
    settings.limiter = &limiter;
    settings.temporaryPath = m_description.temporaryPath;
    settings.retryAttempts = m_description.retryAttempts;
    settings.retryInterval = m_description.retryInterval;
    settings.uploaded = &m_progress.bytesUploaded;

    std::unique_ptr<RunWriter> writer;
    Status status = RunWriter::begin(m_repository, settings, &writer);
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    result.full = writer->type() == BackupType::Full;
    result.generation = writer->generation().id();

    m_progress.step = int(RunStep::Reading);
    QByteArray root;
    int warnings = 0;
    int errors = 0;
    quint64 files = 0;
    quint64 bytes = 0;
    {
        // Chunks in flight: a few per thread keep every thread busy; more
        // only costs memory. The memory setting caps it from above.
        const qint64 inFlight = std::min<qint64>(
            m_description.memoryLimit / 4, std::max(1, m_description.threads) * kChunksPerThread);
        Pipeline pipeline(*writer, m_description.threads, inFlight);
        TreeBuilder builder(*this, *writer, pipeline);
        SourceWalker(m_description.walk).walk(&builder);
        status = builder.failure;
        if (status.ok()) {
            status = pipeline.drain();
        }
        if (status.ok() && m_stop) {
            status = Orv::Repository::failure(QStringLiteral("The backup was stopped."));
        }
        if (status.ok() && builder.hasGrafts()) {
            status = builder.flushTrees();
            if (status.ok()) {
                status = pipeline.flush();
            }
            if (status.ok()) {
                status = writer->waitForUploads();
            }
            if (status.ok()) {
                status = builder.graft();
            }
        }
        if (status.ok()) {
            status = builder.finish(&root);
        }
        if (status.ok()) {
            status = builder.flushTrees();
        }
        const Status finished = pipeline.finish();
        if (status.ok()) {
            status = finished;
        }
        warnings = builder.warnings;
        errors = builder.errors;
        files = builder.files;
        bytes = builder.bytes;
        result.problems = builder.problems;
    }
    result.warnings = warnings;
    result.errors = errors;
    result.filesRead = m_progress.filesRead;
    if (!status.ok()) {
        writer->abort();
        result.message = status.message;
        result.bytesUploaded = writer->uploadedBytes();
        return result;
    }

    m_progress.step = int(RunStep::Committing);
    PointRecord point;
    status = writer->commit(root, {warnings, errors, files, bytes}, &point);
    result.bytesUploaded = writer->uploadedBytes();
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    result.point = point.id;
    result.files = files;
    result.bytes = bytes;
    writer.reset();

    if (m_description.retention.count > 0) {
        m_progress.step = int(RunStep::Retention);
        const QDateTime cutoff = m_description.retention.cutoff(m_description.now());
        status = m_repository.applyRetention(m_description.planId, cutoff, nullptr);
        if (!status.ok()) {
            ++result.warnings;
            result.problems.append(QStringLiteral("Retention: %1").arg(status.message));
        }
    }
    m_progress.step = int(RunStep::Done);
    result.outcome = result.errors > 0     ? RunResult::Outcome::Failure
                     : result.warnings > 0 ? RunResult::Outcome::Warning
                                           : RunResult::Outcome::Success;
    result.message = result.outcome == RunResult::Outcome::Success
                         ? QStringLiteral("Backup completed.")
                         : QStringLiteral("Backup completed with %1 warning(s) and %2 error(s).")
                               .arg(result.warnings)
                               .arg(result.errors);
    return result;
}

} // namespace Orv::Engine
