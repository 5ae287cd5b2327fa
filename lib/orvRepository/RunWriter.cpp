#include "orvRepository/RunWriter.h"

#include "kelBackupFormat/Tree.h"

#include <QDir>
#include <QSet>
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace Orv::Repository {

using namespace Kel::Archive;

namespace {

// Entries per index object: keeps the memory of one index bounded whatever
// the size of the run.
constexpr int kIndexEntries = 50000;

QString lastPart(const QString& name)
{
    return name.mid(name.lastIndexOf('/') + 1);
}

// Writes all the bytes to the descriptor; false with errno in *error.
bool writeAll(int fd, const QByteArray& bytes, int* error)
{
    const char* p = bytes.constData();
    qsizetype left = bytes.size();
    while (left > 0) {
        const ssize_t n = ::write(fd, p, std::size_t(left));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            *error = n < 0 ? errno : ENOSPC;
            return false;
        }
        p += n;
        left -= n;
    }
    return true;
}

} // namespace

RunWriter::RunWriter(const Repository& repository, const RunSettings& settings)
    : m_repository(repository), m_settings(settings)
{
}

RunWriter::~RunWriter()
{
    if (!m_uploaders.empty() || m_inTransaction) {
        abort();
    }
}

Status RunWriter::begin(const Repository& repository, const RunSettings& settings,
                        std::unique_ptr<RunWriter>* writer)
{
    std::unique_ptr<RunWriter> w(new RunWriter(repository, settings));
    const Status status = w->prepare();
    if (!status.ok()) {
        return status;
    }
    *writer = std::move(w);
    return Status::success();
}

Status RunWriter::prepare()
{
    m_start = QDateTime::currentDateTimeUtc();
    m_runId = Layout::newId(m_start);
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        return status;
    }
    const Layout layout = m_repository.layout();
    const QString bunch = m_settings.bunch;

    BunchRecord bunchRecord;
    QByteArray bytes;
    status = backend->read(layout.bunchRecord(bunch), 0, -1, &bytes);
    if (!status.ok() && status.error != Kel::Cloud::Operation::Error::ObjectNotFound) {
        return status;
    }
    if (!status.ok() || !BunchRecord::decode(bytes, &bunchRecord) ||
        bunchRecord.planName != m_settings.planName) {
        bunchRecord.id = bunch;
        bunchRecord.planName = m_settings.planName;
        if (!bunchRecord.created.isValid()) {
            bunchRecord.created = m_start;
        }
        status = backend->write(layout.bunchRecord(bunch), bunchRecord.encode());
        if (!status.ok()) {
            return status;
        }
    }

    // Generations whose first run never committed are leftovers: remove them.
    QList<Kel::Cloud::ObjectInfo> records;
    QList<Kel::Cloud::ObjectInfo> points;
    status = backend->list(layout.generations(bunch), &records);
    if (status.ok()) {
        status = backend->list(layout.points(bunch), &points);
    }
    if (!status.ok()) {
        return status;
    }
    QSet<QString> withPoints;
    for (const auto& p : points) {
        withPoints.insert(p.name.section('/', -2, -2));
    }
    QStringList generations;
    for (const auto& r : records) {
        const QString gen = lastPart(r.name);
        if (withPoints.contains(gen)) {
            generations.append(gen);
        } else if (!(status = m_repository.removeGeneration(bunch, gen)).ok()) {
            return status;
        }
    }
    std::sort(generations.begin(), generations.end());

    bool fresh = m_settings.forceFull || generations.isEmpty();
    if (!fresh) {
        status = Generation::open(m_repository, bunch, generations.last(), m_settings.password,
                                  &m_generation);
        if (!status.ok() && status.message.startsWith(QLatin1String("Wrong password"))) {
            // The plan's password changed: the old generation stays readable
            // with the old one, and a new generation starts with the new one.
            fresh = true;
        } else if (!status.ok()) {
            return status;
        } else if (m_generation->record().algorithm != m_settings.algorithm ||
                   m_generation->points().isEmpty()) {
            fresh = true;
        }
    }
    if (fresh) {
        status = startGeneration(*backend);
        if (!status.ok()) {
            return status;
        }
    } else {
        m_type = BackupType::Incremental;
        m_previous = &m_generation->points().last();
        qint64 removed = 0;
        status = m_generation->removeLeftovers(&removed);
        if (!status.ok()) {
            return status;
        }
    }

    m_staging = m_repository.location().backend(&status);
    m_generation->cache().begin();
    m_inTransaction = true;
    for (int i = 0; i < std::max(1, m_settings.uploadThreads); ++i) {
        m_uploaders.emplace_back([this] { uploadLoop(); });
    }
    return Status::success();
}

Status RunWriter::startGeneration(Kel::Cloud::Backend& backend)
{
    m_type = BackupType::Full;
    m_previous = nullptr;
    KeySet keys;
    GenerationRecord record =
        GenerationRecord::unsealed(Layout::newId(m_start), m_settings.bunch, m_settings.algorithm,
                                   m_settings.hint, m_settings.compression, &keys);
    if (!m_settings.algorithm.isEmpty() && !record.encrypted()) {
        return failure(
            QStringLiteral("Unknown encryption algorithm \"%1\".").arg(m_settings.algorithm));
    }
    m_generation.reset();
    const Status status = Generation::adopt(m_repository, m_settings.bunch, record, keys,
                                            m_settings.password, &m_generation);
    if (!status.ok() || !record.encrypted()) {
        return status.ok() ? backend.write(m_repository.layout().generationRecord(m_settings.bunch,
                                                                                  record.id),
                                           record.encode())
                           : status;
    }
    // The keys are random and already known: the run goes on with them while
    // the memory-hard derivation seals them for the record.
    m_pendingRecord =
        std::async(std::launch::async, [record, keys, password = m_settings.password]() mutable {
            record.seal(keys, password);
            return record.encode();
        });
    return Status::success();
}

Status RunWriter::writeGenerationRecord(Kel::Cloud::Backend& backend)
{
    std::lock_guard lock(m_recordMutex);
    if (m_pendingRecord.valid()) {
        m_unwrittenRecord = m_pendingRecord.get();
    }
    if (m_unwrittenRecord.isEmpty()) {
        return Status::success();
    }
    const Status status =
        backend.write(m_repository.layout().generationRecord(m_settings.bunch, m_generation->id()),
                      m_unwrittenRecord);
    if (status.ok()) {
        m_unwrittenRecord.clear();
    }
    return status;
}

std::unique_ptr<RunWriter::Worker> RunWriter::worker()
{
    return std::unique_ptr<Worker>(new Worker(*this));
}

RunWriter::Worker::Worker(RunWriter& writer)
    : m_writer(writer), m_codec(writer.generation().keys(), writer.m_settings.compression)
{
}

RunWriter::Worker::~Worker() = default;

Status RunWriter::Worker::store(BlobType type, const char* data, std::size_t size, QByteArray* id,
                                bool* added)
{
    const Status failure = m_writer.failed();
    if (!failure.ok()) {
        return failure;
    }
    *id = m_codec.id(data, size);
    const bool isNew = m_writer.claim(*id);
    if (added) {
        *added = isNew;
    }
    if (!isNew) {
        return Status::success();
    }
    if (!m_pack) {
        Status status;
        m_file = m_writer.temporaryFile(&status, &m_staged);
        if (!m_file) {
            m_writer.fail(status);
            return status;
        }
        m_pack =
            std::make_unique<PackBuilder>([this, fd = m_file->handle()](const QByteArray& bytes) {
                return writeAll(fd, bytes, &m_error);
            });
    }
    const BlobEntry& entry = m_pack->add(m_codec, *id, type, data, size);
    if (!m_pack->ok()) {
        const Status status =
            Orv::Repository::failure(QStringLiteral("Cannot write a pack: %1")
                                         .arg(QString::fromLocal8Bit(strerror(m_error))));
        m_writer.fail(status);
        return status;
    }
    m_writer.generation().cache().putBlob(m_writer.generation().number(), m_pack->name(), entry);
    m_writer.release(*id);
    ++m_writer.m_storedBlobs;
    if (m_pack->size() >= m_writer.m_settings.packSize) {
        return flush();
    }
    return Status::success();
}

Status RunWriter::Worker::flush()
{
    if (!m_pack || m_pack->isEmpty()) {
        return m_writer.failed();
    }
    std::unique_ptr<PackBuilder> pack = std::move(m_pack);
    return m_writer.enqueue(*pack, m_codec, std::move(m_file), m_staged, m_error);
}

bool RunWriter::claim(const QByteArray& id)
{
    std::lock_guard lock(m_claimMutex);
    if (m_pending.contains(id) ||
        m_generation->cache().findBlob(m_generation->number(), id, nullptr)) {
        return false;
    }
    m_pending.insert(id);
    return true;
}

void RunWriter::release(const QByteArray& id)
{
    std::lock_guard lock(m_claimMutex);
    m_pending.remove(id);
}

std::unique_ptr<QFile> RunWriter::temporaryFile(Status* status, bool* staged)
{
    auto file = std::make_unique<QFile>();
    {
        std::lock_guard lock(m_mutex);
        const int fd = m_staging ? m_staging->stagingFile() : -1;
        *staged = fd >= 0;
        if (*staged) {
            file->open(fd, QIODevice::ReadWrite | QIODevice::Unbuffered,
                       QFileDevice::AutoCloseHandle);
            return file;
        }
    }
    const QString folder =
        m_settings.temporaryPath.isEmpty() ? QDir::tempPath() : m_settings.temporaryPath;
    const int fd =
        ::open(QFile::encodeName(folder).constData(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    if (fd < 0) {
        *status = failure(QStringLiteral("Cannot make a temporary pack in %1: %2")
                              .arg(folder, QString::fromLocal8Bit(strerror(errno))));
        return nullptr;
    }
    file->open(fd, QIODevice::ReadWrite | QIODevice::Unbuffered, QFileDevice::AutoCloseHandle);
    return file;
}

Status RunWriter::enqueue(PackBuilder& pack, BlobCodec& codec, std::unique_ptr<QFile> file,
                          bool staged, const int& error)
{
    pack.finish(codec);
    if (!pack.ok()) {
        const Status status = failure(
            QStringLiteral("Cannot write a pack: %1").arg(QString::fromLocal8Bit(strerror(error))));
        fail(status);
        return status;
    }
    std::unique_lock lock(m_mutex);
    m_queueChanged.wait(lock, [this] {
        return !m_failure.ok() || m_stopping ||
               int(m_queue.size()) < std::max(1, m_settings.queuedPacks);
    });
    if (!m_failure.ok()) {
        return m_failure;
    }
    m_queue.push_back({pack.name(), std::move(file), pack.size(), staged});
    m_packs.append(pack.record());
    m_queueChanged.notify_all();
    return Status::success();
}

void RunWriter::uploadLoop()
{
    pthread_setname_np(pthread_self(), "orv-upload");
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        fail(status);
        return;
    }
    const Layout layout = m_repository.layout();
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_queueChanged.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
        if (m_queue.empty()) {
            return;
        }
        Finished pack = std::move(m_queue.front());
        m_queue.pop_front();
        ++m_uploading;
        const bool go = m_failure.ok();
        m_queueChanged.notify_all();
        lock.unlock();
        if (m_settings.limiter) {
            m_settings.limiter->acquire(pack.size);
        }
        status = Status::success();
        const QString name = layout.pack(m_settings.bunch, m_generation->id(), pack.name);
        const auto send = [&]() {
            const Status record = writeGenerationRecord(*backend);
            if (!record.ok()) {
                return record;
            }
            if (pack.staged) {
                return backend->adopt(name, ::dup(pack.file->handle()));
            }
            pack.file->seek(0);
            return backend->write(name, pack.file.get(), pack.size);
        };
        for (int attempt = 0; go; ++attempt) {
            status = send();
            // A connection that broke is made again and the pack sent again,
            // as often as the connection setting allows; other errors (a
            // refusal, a full store) would only repeat.
            if (status.ok() || status.error != Kel::Cloud::Operation::Error::Unreachable ||
                attempt >= m_settings.retryAttempts || stopping()) {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(m_settings.retryInterval));
            Status made;
            if (auto fresh = m_repository.location().backend(&made)) {
                backend = std::move(fresh);
            }
        }
        m_uploadedBytes += quint64(pack.size);
        if (m_settings.uploaded) {
            *m_settings.uploaded += quint64(pack.size);
        }
        pack.file.reset();
        lock.lock();
        --m_uploading;
        if (!status.ok() && m_failure.ok()) {
            m_failure = status;
        }
        m_queueChanged.notify_all();
    }
}

bool RunWriter::stopping() const
{
    std::lock_guard lock(m_mutex);
    return m_stopping && !m_failure.ok();
}

Status RunWriter::failed() const
{
    std::lock_guard lock(m_mutex);
    return m_failure;
}

void RunWriter::fail(const Status& status)
{
    std::lock_guard lock(m_mutex);
    if (m_failure.ok()) {
        m_failure = status;
    }
    m_queueChanged.notify_all();
}

Status RunWriter::waitForUploads()
{
    std::unique_lock lock(m_mutex);
    m_queueChanged.wait(
        lock, [this] { return !m_failure.ok() || (m_queue.empty() && m_uploading == 0); });
    return m_failure;
}

Status RunWriter::commit(const QByteArray& root, const Totals& totals, PointRecord* point)
{
    {
        std::unique_lock lock(m_mutex);
        m_queueChanged.wait(
            lock, [this] { return !m_failure.ok() || (m_queue.empty() && m_uploading == 0); });
        m_stopping = true;
        m_queueChanged.notify_all();
    }
    for (std::thread& t : m_uploaders) {
        t.join();
    }
    m_uploaders.clear();
    Status status = failed();
    if (!status.ok()) {
        abort();
        return status;
    }
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        abort();
        return status;
    }
    status = writeGenerationRecord(*backend);
    if (!status.ok()) {
        abort();
        return status;
    }
    const Layout layout = m_repository.layout();
    const QString& gen = m_generation->id();
    BlobCodec codec(m_generation->keys(), false);

    PointRecord record;
    record.id = m_runId;
    record.type = m_type;
    record.start = m_start;
    record.end = QDateTime::currentDateTimeUtc();
    record.warnings = totals.warnings;
    record.errors = totals.errors;
    record.status = totals.errors > 0     ? PointStatus::Failure
                    : totals.warnings > 0 ? PointStatus::Warning
                                          : PointStatus::Success;
    record.root = root;
    record.files = totals.files;
    record.bytes = totals.bytes;

    // Indexes first, the restore point last: the point is the commit.
    QVector<PackRecord> part;
    int entries = 0;
    auto writePart = [&]() {
        const QString name = layout.index(m_settings.bunch, gen, m_runId, record.indexes);
        ++record.indexes;
        const Status s = backend->write(name, encodeIndex(part, codec, name.toUtf8()));
        part.clear();
        entries = 0;
        return s;
    };
    for (const PackRecord& pack : m_packs) {
        part.append(pack);
        entries += pack.entries.size();
        if (entries >= kIndexEntries && !(status = writePart()).ok()) {
            abort();
            return status;
        }
    }
    if (!part.isEmpty() && !(status = writePart()).ok()) {
        abort();
        return status;
    }
    const QByteArray encoded = record.encode(codec);
    status = backend->write(layout.point(m_settings.bunch, gen, m_runId), encoded);
    if (!status.ok()) {
        abort();
        return status;
    }
    Cache& cache = m_generation->cache();
    for (const PackRecord& pack : m_packs) {
        cache.putPack(m_generation->number(), pack.name);
    }
    cache.commit();
    m_inTransaction = false;
    cache.addPoint(gen, m_runId, encoded);
    if (point) {
        *point = record;
    }
    return Status::success();
}

void RunWriter::abort()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
        m_queue.clear();
        if (m_failure.ok()) {
            m_failure = failure(QStringLiteral("The run was stopped."));
        }
        m_queueChanged.notify_all();
    }
    for (std::thread& t : m_uploaders) {
        t.join();
    }
    m_uploaders.clear();
    if (m_inTransaction) {
        m_generation->cache().rollback();
        m_inTransaction = false;
    }
}

} // namespace Orv::Repository
