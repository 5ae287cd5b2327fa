#include "service/engine/CurrentArchiver.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/BandwidthLimiter.h"
#include "orvRepository/CurrentCache.h"
#include "service/engine/CurrentBlocks.h"
#include "service/engine/CurrentRetention.h"
#include "service/engine/CurrentSavedPlan.h"
#include "service/engine/CurrentStore.h"
#include "service/engine/EntryNodes.h"
#include "service/engine/SourceWalker.h"

#include <QBuffer>
#include <QDir>
#include <QTemporaryFile>
#include <condition_variable>
#include <deque>
#include <fcntl.h>
#include <mutex>
#include <thread>
#include <unistd.h>

namespace Orv::Engine {

using Kel::Archive::ManifestEntry;
using Kel::Archive::Node;
using Orv::Repository::CurrentCache;
using Orv::Repository::failure;
using Orv::Repository::Status;

namespace {

constexpr int kMaxProblems = 100;
// Files waiting for an uploader: paths and metadata only, so cheap.
constexpr std::size_t kQueuedFiles = 256;
// Bytes of manifest entries per piece.
constexpr int kManifestPiece = 1024 * 1024;

// Whether a file is as the last manifest has it, so that its version is
// taken over without reading it. A hard link's version lives under another
// path: it is never taken over as the path's own.
bool unchanged(const Node& now, const ManifestEntry& before)
{
    const Node& b = before.node;
    return b.isFile() && before.hardLinkTo.isEmpty() && !before.version.isEmpty() &&
           b.size == now.size && b.mtimeNs == now.mtimeNs && b.ctimeNs == now.ctimeNs &&
           b.inode == now.inode && b.device == now.device;
}

// The run of the last full version of a path, that a block-level version of
// it may build on: the version itself, or the one a delta builds on. Deltas
// never build on deltas, so that a restore needs two objects at most.
QString fullVersion(const ManifestEntry& before)
{
    if (!before.node.isFile() || !before.hardLinkTo.isEmpty()) {
        return QString();
    }
    return before.base.isEmpty() ? before.version : before.base;
}

Status retried(const RunDescription& d, const std::function<Status()>& call)
{
    Status status = call();
    for (int attempt = 0; !status.ok() && attempt < d.retryAttempts; ++attempt) {
        std::this_thread::sleep_for(std::chrono::milliseconds(d.retryInterval));
        status = call();
    }
    return status;
}

// Reads until the buffer is full or the file ends; -1 on an error.
qint64 readPiece(int fd, QByteArray* buffer)
{
    qint64 filled = 0;
    while (filled < buffer->size()) {
        const ssize_t n = ::read(fd, buffer->data() + filled, std::size_t(buffer->size() - filled));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n < 0) {
            return -1;
        }
        if (n == 0) {
            break;
        }
        filled += n;
    }
    return filled;
}

QString temporaryTemplate(const RunDescription& d)
{
    return (d.temporaryPath.isEmpty() ? QDir::tempPath() : d.temporaryPath) +
           QStringLiteral("/orv-cbf-XXXXXX");
}

// Where a version object is built before it is stored: memory, or a
// temporary file when the file is large.
class VersionSink
{
public:
    VersionSink(const RunDescription& d, quint64 size) : m_file(temporaryTemplate(d))
    {
        reset(qint64(size) > kCurrentInMemory);
    }

    QIODevice* device() { return m_device; }
    // Empty again, for a version started over.
    void reset(bool large)
    {
        if (large && (m_file.isOpen() || m_file.open()) && m_file.resize(0) && m_file.seek(0)) {
            m_device = &m_file;
            return;
        }
        m_memory.close();
        m_memory.setData(QByteArray());
        m_memory.open(QIODevice::ReadWrite);
        m_device = &m_memory;
    }
    Status store(Kel::Cloud::Backend& backend, const QString& name, const RunDescription& d)
    {
        if (m_device == &m_memory) {
            return retried(d, [&] { return backend.write(name, m_memory.data()); });
        }
        const qint64 size = m_file.size();
        return retried(d, [&] {
            m_file.seek(0);
            return backend.write(name, &m_file, size);
        });
    }

private:
    QBuffer m_memory;
    QTemporaryFile m_file;
    QIODevice* m_device = &m_memory;
};

// A changed file for an uploader, and the run of the full version it may be
// stored against at block level (empty: whole).
struct Upload
{
    ManifestEntry entry;
    QString base;
};

} // namespace

// Threads that each take a changed file, read it, turn it into its version
// object (in memory, or in a temporary file when large) and store it over
// a connection of their own.
class CurrentArchiver::Uploader
{
public:
    Uploader(CurrentArchiver& archiver, CurrentCache& cache, const Kel::Archive::KeySet& keys,
             const QString& run)
        : m_archiver(archiver), m_cache(cache), m_keys(keys), m_run(run)
    {
        const RunDescription& d = archiver.m_description;
        const int threads = std::max(1, std::max(d.threads, d.uploadThreads));
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this] { work(); });
        }
    }

    ~Uploader() { finish(); }

    void add(const ManifestEntry& entry, const QString& base)
    {
        std::unique_lock lock(m_mutex);
        m_room.wait(lock, [this] { return m_queue.size() < kQueuedFiles || !m_failure.ok(); });
        m_queue.push_back({entry, base});
        m_ready.notify_one();
    }

    // Waits for every file; the storage's failure, if any.
    Status finish()
    {
        {
            std::lock_guard lock(m_mutex);
            m_done = true;
            m_ready.notify_all();
        }
        for (auto& t : m_threads) {
            t.join();
        }
        m_threads.clear();
        return m_failure;
    }

    bool failed()
    {
        std::lock_guard lock(m_mutex);
        return !m_failure.ok();
    }

    int warnings = 0;
    QStringList problems;

private:
    void work()
    {
        Status status;
        std::unique_ptr<Kel::Cloud::Backend> backend =
            m_archiver.m_repository.location().backend(&status);
        if (!backend) {
            fail(status.ok() ? failure(QStringLiteral("The storage cannot be used.")) : status);
            drainQueue();
            return;
        }
        // Versions are many and often small: a store that can flush them all
        // at once does so when the thread ends, before the manifest names them.
        backend->setFlushDeferred(true);
        QByteArray buffer;
        BlockVersionWriter blocks(m_keys, m_archiver.m_description.compression);
        for (;;) {
            Upload upload;
            {
                std::unique_lock lock(m_mutex);
                m_ready.wait(lock, [this] { return !m_queue.empty() || m_done; });
                if (m_queue.empty()) {
                    lock.unlock();
                    status = backend->flush();
                    if (!status.ok()) {
                        fail(status);
                    }
                    return;
                }
                upload = std::move(m_queue.front());
                m_queue.pop_front();
                m_room.notify_one();
                if (!m_failure.ok() || m_archiver.m_stop) {
                    continue;
                }
            }
            status = store(*backend, upload, &buffer, &blocks);
            if (!status.ok()) {
                fail(status);
            }
        }
    }

    // Without a connection this thread only keeps the walk from waiting.
    void drainQueue()
    {
        std::unique_lock lock(m_mutex);
        m_queue.clear();
        m_room.notify_all();
    }

    QString versionName(const QByteArray& path, const QString& run) const
    {
        const Kel::Archive::CurrentLayout layout(m_archiver.m_repository.location().prefix);
        return layout.version(m_archiver.m_description.planId,
                              Kel::Archive::CurrentLayout::pathKey(path, m_keys.idKey), run);
    }

    using Result = BlockVersionWriter::Result;

    // Stores one file's version; a file that cannot be read is a warning and
    // is left out of the run, a storage failure ends the run.
    Status store(Kel::Cloud::Backend& backend, Upload& upload, QByteArray* buffer,
                 BlockVersionWriter* blocks)
    {
        const RunDescription& d = m_archiver.m_description;
        ManifestEntry* entry = &upload.entry;
        int fd = ::open(entry->path.constData(), O_RDONLY | O_CLOEXEC | O_NOATIME);
        if (fd < 0 && errno == EPERM) {
            fd = ::open(entry->path.constData(), O_RDONLY | O_CLOEXEC);
        }
        if (fd < 0) {
            skip(entry->path, errno);
            return Status::success();
        }
        posix_fadvise(fd, 0, 0, POSIX_FADV_SEQUENTIAL);
        const quint64 expected = entry->node.size;
        const QString name = versionName(entry->path, m_run);
        VersionSink sink(d, expected);
        // A file with hard links is stored whole: its links share its version
        // before the version is known to be a delta.
        const bool blockLevel =
            d.blockLevel && expected >= kBlockLevelMinimum && entry->node.links <= 1;
        int error = 0;
        const Result result = blockLevel
                                  ? writeBlocks(backend, fd, name, &upload, &sink, blocks, &error)
                                  : writeWhole(fd, name, entry, sink.device(), buffer, &error);
        ::close(fd);
        if (result == Result::ReadFailed) {
            skip(entry->path, error);
            return Status::success();
        }
        if (result != Result::Stored) {
            return failure(QStringLiteral("Cannot write a temporary file: %1")
                               .arg(sink.device()->errorString()));
        }
        const qint64 stored = sink.device()->size();
        m_limiter.acquire(stored);
        const Status status = sink.store(backend, name, d);
        if (!status.ok()) {
            return status;
        }
        m_archiver.m_progress.bytesUploaded += quint64(stored);
        ++m_archiver.m_progress.filesRead;
        // A file that grew or shrank while it was read is kept as read; a
        // delta names its base. The walk put the entry as it saw it.
        if (entry->node.size != expected || !entry->base.isEmpty()) {
            m_cache.put(*entry);
        }
        return Status::success();
    }

    Result writeWhole(int fd, const QString& name, ManifestEntry* entry, QIODevice* sink,
                      QByteArray* buffer, int* error)
    {
        Kel::Archive::PieceWriter writer(sink, m_keys, m_archiver.m_description.compression, name,
                                         QByteArray());
        buffer->resize(int(std::min<qint64>(kCurrentPiece, qint64(entry->node.size) + 1)));
        quint64 size = 0;
        bool written = true;
        for (;;) {
            const qint64 n = readPiece(fd, buffer);
            if (n < 0) {
                *error = errno;
                return Result::ReadFailed;
            }
            if (n > 0) {
                written = written && writer.write(buffer->constData(), std::size_t(n), false);
                size += quint64(n);
                m_archiver.m_progress.bytesRead += quint64(n);
            }
            if (n < buffer->size()) {
                break;
            }
            if (buffer->size() < kCurrentPiece) {
                buffer->resize(int(kCurrentPiece));
            }
        }
        entry->node.size = size;
        written = written && writer.write(entry->encode(), true);
        return written ? Result::Stored : Result::WriteFailed;
    }

    // A delta against the full version the walk proposed when that version
    // has a block map, else a full version with its map.
    Result writeBlocks(Kel::Cloud::Backend& backend, int fd, const QString& name, Upload* upload,
                       VersionSink* sink, BlockVersionWriter* blocks, int* error)
    {
        ManifestEntry* entry = &upload->entry;
        BlockBase base{upload->base, {}};
        const bool delta =
            !base.run.isEmpty() &&
            fetchBlockMap(backend, versionName(entry->path, base.run), m_keys, &base.map);
        std::atomic<quint64>* read = &m_archiver.m_progress.bytesRead;
        Result result =
            blocks->write(fd, name, delta ? &base : nullptr, sink->device(), entry, read);
        if (result == Result::NotWorthIt) {
            // Too much changed for a delta: stored whole, and later deltas
            // build on this version.
            if (::lseek(fd, 0, SEEK_SET) != 0) {
                *error = errno;
                return Result::ReadFailed;
            }
            sink->reset(qint64(entry->node.size) > kCurrentInMemory);
            result = blocks->write(fd, name, nullptr, sink->device(), entry, read);
        }
        if (result == Result::ReadFailed) {
            *error = blocks->readError();
        }
        return result;
    }

    // A file that vanished before it was read is gone from this run; one
    // that could not be read keeps its last version, as the walk's problems.
    void skip(const QByteArray& path, int error)
    {
        const QString reason = QString::fromLocal8Bit(strerror(error));
        m_cache.drop(path);
        if (error != ENOENT) {
            m_cache.carryForward(path);
        }
        ++m_archiver.m_progress.filesFailed;
        std::lock_guard lock(m_mutex);
        ++warnings;
        if (problems.size() < kMaxProblems) {
            problems.append(QStringLiteral("%1: %2").arg(pathText(path), reason));
        }
    }

    void fail(const Status& status)
    {
        std::lock_guard lock(m_mutex);
        if (m_failure.ok()) {
            m_failure = status;
        }
        m_room.notify_all();
    }

    CurrentArchiver& m_archiver;
    CurrentCache& m_cache;
    const Kel::Archive::KeySet m_keys;
    const QString m_run;
    std::vector<std::thread> m_threads;
    // The bandwidth setting, shared by every upload thread.
    Kel::Streams::BandwidthLimiter m_limiter{m_archiver.m_description.bandwidth};
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::condition_variable m_room;
    std::deque<Upload> m_queue;
    bool m_done = false;
    Status m_failure;
};

// Receives the walk: puts every entry into the run's table of the cache, and
// hands the files that changed to the uploader.
class CurrentArchiver::Visitor : public WalkVisitor
{
public:
    Visitor(CurrentArchiver& archiver, CurrentCache& cache, Uploader& uploader, const QString& run)
        : m_archiver(archiver), m_cache(cache), m_uploader(uploader), m_run(run)
    {
    }

    int warnings = 0;
    quint64 files = 0;
    quint64 bytes = 0;
    QStringList problems;

    bool stopRequested() const override { return m_archiver.m_stop || m_uploader.failed(); }
    void beginRoot(const WalkEntry&) override {}
    void endRoot(const WalkEntry&) override {}

    void enterDirectory(const WalkEntry& directory) override
    {
        ++m_archiver.m_progress.filesSeen;
        countEntry();
        m_entries.push_back(0);
        if (directory.path == "/") {
            return;
        }
        m_cache.put({directory.path, nodeOf(directory), QString(), QByteArray(), QString()});
    }

    // A folder left with nothing in it goes when empty folders are not
    // kept, and then no longer counts in its parent: folders holding only
    // empty folders go too. The roots always stay.
    void leaveDirectory(const WalkEntry& directory) override
    {
        const int entries = m_entries.back();
        m_entries.pop_back();
        if (entries > 0 || m_archiver.m_description.keepEmptyFolders || m_entries.empty() ||
            directory.path == "/") {
            return;
        }
        m_cache.drop(directory.path);
        --m_entries.back();
    }

    void entry(const WalkEntry& walked) override
    {
        countEntry();
        ManifestEntry entry{walked.path, nodeOf(walked), QString(), QByteArray(), QString()};
        ++m_archiver.m_progress.filesSeen;
        m_archiver.m_progress.bytesSeen += entry.node.size;
        if (!entry.node.isFile()) {
            m_cache.put(entry);
            return;
        }
        ++files;
        bytes += entry.node.size;
        ManifestEntry other;
        // A path walked again (a root that holds an earlier one) is no link
        // of itself.
        if (entry.node.links > 1 &&
            m_cache.findInode(entry.node.device, entry.node.inode, &other) &&
            other.path != entry.path) {
            entry.hardLinkTo = other.path;
            entry.version = other.version;
            entry.base = other.base;
            m_cache.put(entry);
            return;
        }
        const bool known =
            !m_archiver.m_description.forceFull && m_cache.previous(entry.path, &other);
        if (known && unchanged(entry.node, other)) {
            entry.version = other.version;
            entry.base = other.base;
            m_cache.put(entry);
            return;
        }
        entry.version = m_run;
        m_cache.put(entry);
        m_uploader.add(entry, known ? fullVersion(other) : QString());
    }

    // What is there but out of reach (a folder that cannot be read, a source
    // not mounted) keeps its last backed-up state in this run: it must not
    // look deleted at the source, which retention would act on.
    void problem(const QByteArray& path, const QString& reason) override
    {
        m_cache.carryForward(path);
        vanished(path, reason);
    }

    void vanished(const QByteArray& path, const QString& reason) override
    {
        ++warnings;
        if (problems.size() < kMaxProblems) {
            problems.append(QStringLiteral("%1: %2").arg(pathText(path), reason));
        }
    }

private:
    void countEntry()
    {
        if (!m_entries.empty()) {
            ++m_entries.back();
        }
    }

    CurrentArchiver& m_archiver;
    CurrentCache& m_cache;
    Uploader& m_uploader;
    QString m_run;
    std::vector<int> m_entries; // per open folder, what it holds so far
};

CurrentArchiver::CurrentArchiver(const Orv::Repository::Repository& repository,
                                 const RunDescription& description)
    : m_repository(repository), m_description(description)
{
}

CurrentArchiver::~CurrentArchiver() = default;

namespace {

// Makes the cache's last entries those of the newest manifest when they are
// not (another machine ran the plan, or the cache was lost).
Status syncCache(CurrentStore& store, CurrentCache& cache, const QString& newest)
{
    if (cache.manifest() == newest) {
        return Status::success();
    }
    cache.beginRebuild();
    Status status = Status::success();
    if (!newest.isEmpty()) {
        Kel::Archive::ManifestHeader header;
        status = store.readManifest(newest, &header, [&cache](const ManifestEntry& e) {
            cache.putLast(e);
            return true;
        });
    }
    cache.finishRebuild(status.ok() ? newest : QString());
    return status;
}

// Every this many runs a manifest lists every entry; the runs between list
// what changed since the run before, so that a run that changed little
// stores little. Reading a run then reads at most this many manifests.
constexpr int kFullManifestEvery = 8;

// The run the new manifest is a delta on, or empty for a whole manifest:
// whole for the first run, a forced full run, every kFullManifestEvery
// runs, and when a quarter of the entries or more changed.
QString deltaBase(CurrentCache& cache, const QStringList& runs, bool forceFull)
{
    if (forceFull || runs.isEmpty() || runs.size() % kFullManifestEvery == 0 ||
        cache.manifest() != runs.last()) {
        return QString();
    }
    return cache.changes() * 4 < cache.entries() ? runs.last() : QString();
}

Status writeManifest(CurrentStore& store, CurrentCache& cache, const RunDescription& d,
                     const Kel::Archive::ManifestHeader& header, quint64* uploaded)
{
    QTemporaryFile file(d.temporaryPath.isEmpty()
                            ? QDir::tempPath() + QStringLiteral("/orv-cbf-XXXXXX")
                            : d.temporaryPath + QStringLiteral("/orv-cbf-XXXXXX"));
    if (!file.open()) {
        return failure(QStringLiteral("Cannot make a temporary file: %1").arg(file.errorString()));
    }
    const QString name = store.layout().manifest(store.plan(), header.run);
    Kel::Archive::PieceWriter writer(&file, store.keys(), d.compression, name, header.encode());
    QByteArray piece;
    bool written = true;
    const auto flushPiece = [&] {
        if (piece.size() >= kManifestPiece) {
            written = written && writer.write(piece, false);
            piece.clear();
        }
        return written;
    };
    if (header.base.isEmpty()) {
        cache.forEach([&](const ManifestEntry& entry) {
            Kel::Archive::ByteWriter(&piece).bytes(entry.encode());
            return flushPiece();
        });
    } else {
        cache.forEachChange([&](const QByteArray& path, const ManifestEntry* entry) {
            Kel::Archive::ByteWriter w(&piece);
            w.byte(quint8(entry ? Kel::Archive::DeltaRecord::Entry
                                : Kel::Archive::DeltaRecord::Removed));
            w.bytes(entry ? entry->encode() : path);
            return flushPiece();
        });
    }
    written = written && writer.write(piece, true) && file.flush();
    if (!written) {
        return failure(QStringLiteral("Cannot write a temporary file: %1").arg(file.errorString()));
    }
    const qint64 size = file.size();
    const Status status = retried(d, [&] {
        file.seek(0);
        return store.backend().write(name, &file, size);
    });
    if (status.ok()) {
        *uploaded += quint64(size);
    }
    return status;
}

} // namespace

RunResult CurrentArchiver::run()
{
    RunResult result;
    m_progress.step = int(RunStep::Preparing);
    const QDateTime start = m_description.now();
    CurrentStore store(m_repository, m_description.planId);
    QString error;
    const QString cachePath = m_repository.cachePath(QStringLiteral("cbf-") + m_description.planId);
    std::unique_ptr<CurrentCache> cache = CurrentCache::open(cachePath, &error);
    Status status = cache ? store.connect() : failure(error);
    if (status.ok()) {
        status = store.openKeys({true, m_description.algorithm, m_description.password,
                                 m_description.hint, m_description.compression},
                                cache.get());
    }
    QStringList runs;
    if (status.ok()) {
        status = store.runs(&runs);
    }
    // A newest run that cannot be read (damaged, or a manifest it builds on
    // gone) must not stop every later run: this one stores every file again
    // under a whole manifest, and says why.
    QString unreadable;
    if (status.ok()) {
        status = syncCache(store, *cache, runs.isEmpty() ? QString() : runs.last());
        if (status.error == Kel::Cloud::Operation::Error::Unknown ||
            status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            unreadable = status.message;
            status = Status::success();
        }
    }
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    const QString run = Kel::Archive::Layout::newId(start);
    result.point = run;
    result.full = runs.isEmpty() || m_description.forceFull;
    CurrentRetention retention(store, m_description);
    status = retention.open(
        m_repository.cachePath(QStringLiteral("cbf-versions-") + m_description.planId));
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    retention.started(run);

    m_progress.step = int(RunStep::Reading);
    cache->startRun();
    int warnings = 0;
    quint64 files = 0;
    quint64 bytes = 0;
    {
        Uploader uploader(*this, *cache, store.keys(), run);
        Visitor visitor(*this, *cache, uploader, run);
        SourceWalker(m_description.walk).walk(&visitor);
        status = uploader.finish();
        warnings = visitor.warnings + uploader.warnings;
        files = visitor.files - quint64(uploader.warnings);
        bytes = visitor.bytes;
        result.problems = visitor.problems + uploader.problems;
        if (!unreadable.isEmpty()) {
            ++warnings;
            result.problems.prepend(
                QStringLiteral("The newest run could not be read, so every file was stored "
                               "again: %1")
                    .arg(unreadable));
        }
    }
    if (status.ok() && m_stop) {
        status = failure(QStringLiteral("The backup was stopped."));
    }
    result.warnings = warnings;
    result.filesRead = m_progress.filesRead;
    result.bytesUploaded = m_progress.bytesUploaded;
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }

    m_progress.step = int(RunStep::Committing);
    // What went wrong after the files were stored is told in the run's
    // message: the run itself stands.
    QStringList afterwards;
    if (const Status saved = savePlan(store, m_description); !saved.ok()) {
        ++warnings;
        afterwards.append(
            QStringLiteral("The plan's settings were not saved: %1").arg(saved.message));
    }
    Kel::Archive::ManifestHeader header;
    header.run = run;
    header.base = deltaBase(*cache, runs, m_description.forceFull);
    header.planName = m_description.planName;
    header.full = result.full;
    header.start = start;
    header.end = m_description.now();
    header.status =
        warnings > 0 ? Kel::Archive::PointStatus::Warning : Kel::Archive::PointStatus::Success;
    header.warnings = warnings;
    quint64 uploaded = m_progress.bytesUploaded;
    status = writeManifest(store, *cache, m_description, header, &uploaded);
    result.bytesUploaded = uploaded;
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    retention.committed(run, *cache);
    cache->promote(run);
    result.files = files;
    result.bytes = bytes;

    m_progress.step = int(RunStep::Retention);
    runs.append(run);
    CurrentRetention::Removed removed;
    status = retention.apply(run, runs, &removed);
    result.versionsRemoved = removed.versions;
    if (!status.ok()) {
        ++warnings;
        afterwards.append(QStringLiteral("Retention did not finish: %1").arg(status.message));
    }
    result.problems += afterwards;
    result.warnings = warnings;
    m_progress.step = int(RunStep::Done);
    result.outcome = warnings > 0 ? RunResult::Outcome::Warning : RunResult::Outcome::Success;
    result.message =
        warnings == 0
            ? QStringLiteral("Backup completed.")
            : QStringLiteral("Backup completed with %1 warning(s) and 0 error(s).").arg(warnings);
    if (removed.versions > 0) {
        result.message +=
            QStringLiteral(" Retention deleted %1 file version(s).").arg(removed.versions);
    }
    if (removed.leftovers > 0) {
        result.message += QStringLiteral(" %1 object(s) left by interrupted runs were deleted.")
                              .arg(removed.leftovers);
    }
    for (const QString& problem : std::as_const(afterwards)) {
        result.message += ' ' + problem;
    }
    return result;
}

} // namespace Orv::Engine
