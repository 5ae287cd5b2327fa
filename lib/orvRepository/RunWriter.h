#pragma once

#include "kelBackupFormat/Pack.h"
#include "kelStreams/BandwidthLimiter.h"
#include "orvRepository/Generation.h"

#include <QFile>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <future>
#include <thread>

namespace Orv::Repository {

// How one backup run writes into its bunch.
struct RunSettings
{
    QString bunch; // the plan's id, without braces
    QString planName;
    bool compression = true;
    QString algorithm; // "aes-128", "aes-192", "aes-256"; empty: no encryption
    QByteArray password;
    QByteArray hint;
    bool forceFull = false;
    qint64 packSize = 8 * 1024 * 1024;
    int uploadThreads = 2;
    int queuedPacks = 2; // finished packs waiting for upload, at most
    // Where packs are assembled before upload: unnamed temporary files, so
    // that packs cost no memory and nothing is left behind by a crash.
    QString temporaryPath;
    Kel::Streams::BandwidthLimiter* limiter = nullptr;
    // Uploads that fail because the connection broke are tried again on a
    // new connection, this many times, this many milliseconds apart.
    int retryAttempts = 3;
    int retryInterval = 1000;
    // Counts the bytes uploaded as they go, for the run's progress.
    std::atomic<quint64>* uploaded = nullptr;
};

// One backup run: chooses the generation (a new one for a full backup),
// takes blobs from the archiver's threads, packs and uploads them, and
// commits the restore point. Nothing of the run is visible before commit();
// a run that ends otherwise leaves objects that the next run removes.
class RunWriter
{
public:
    static Status begin(const Repository& repository, const RunSettings& settings,
                        std::unique_ptr<RunWriter>* writer);
    ~RunWriter();

    Kel::Archive::BackupType type() const { return m_type; }
    Generation& generation() { return *m_generation; }
    // The restore point an incremental run compares with; null for a full one.
    const Kel::Archive::PointRecord* previous() const { return m_previous; }
    quint64 chunkerSeed() const { return m_generation->keys().chunkerSeed; }

    // Stores blobs for one thread, into packs of its own.
    class Worker
    {
    public:
        ~Worker();
        // The id of the data, storing it unless the generation has it; *added
        // tells whether it was new. Fails once the run has failed.
        Status store(Kel::Archive::BlobType type, const char* data, std::size_t size,
                     QByteArray* id, bool* added = nullptr);
        Status store(Kel::Archive::BlobType type, const QByteArray& data, QByteArray* id,
                     bool* added = nullptr)
        {
            return store(type, data.constData(), std::size_t(data.size()), id, added);
        }
        // Hands the open pack to the uploaders.
        Status flush();

    private:
        friend class RunWriter;
        explicit Worker(RunWriter& writer);
        RunWriter& m_writer;
        Kel::Archive::BlobCodec m_codec;
        std::unique_ptr<QFile> m_file;
        bool m_staged = false;
        int m_error = 0;
        std::unique_ptr<Kel::Archive::PackBuilder> m_pack;
    };
    std::unique_ptr<Worker> worker();

    struct Totals
    {
        int warnings = 0;
        int errors = 0;
        quint64 files = 0;
        quint64 bytes = 0;
    };
    // Waits until every pack handed over so far is in the storage.
    Status waitForUploads();
    // Waits for every upload, writes the index and the restore point; the
    // workers must have been flushed.
    Status commit(const QByteArray& root, const Totals& totals, Kel::Archive::PointRecord* point);
    // Ends a run that will not commit: stops uploads, forgets its blobs.
    void abort();

    quint64 uploadedBytes() const { return m_uploadedBytes; }
    quint64 storedBlobs() const { return m_storedBlobs; }

private:
    RunWriter(const Repository& repository, const RunSettings& settings);
    Status prepare();
    Status startGeneration(Kel::Cloud::Backend& backend);
    // Writes the record of a generation this run started, once, before its
    // first pack: a generation's objects never appear without their record.
    Status writeGenerationRecord(Kel::Cloud::Backend& backend);
    bool claim(const QByteArray& id);
    void release(const QByteArray& id);
    // error: where the pack's writes leave their errno.
    Status enqueue(Kel::Archive::PackBuilder& pack, Kel::Archive::BlobCodec& codec,
                   std::unique_ptr<QFile> file, bool staged, const int& error);
    std::unique_ptr<QFile> temporaryFile(Status* status, bool* staged);
    void uploadLoop();
    Status failed() const;
    bool stopping() const;
    void fail(const Status& status);

    const Repository& m_repository;
    RunSettings m_settings;
    std::unique_ptr<Generation> m_generation;
    Kel::Archive::BackupType m_type = Kel::Archive::BackupType::Full;
    const Kel::Archive::PointRecord* m_previous = nullptr;
    QDateTime m_start;
    QString m_runId;
    bool m_inTransaction = false;

    // A new generation's record while its keys are still being sealed.
    std::mutex m_recordMutex;
    std::future<QByteArray> m_pendingRecord;
    QByteArray m_unwrittenRecord;

    std::mutex m_claimMutex;
    QSet<QByteArray> m_pending;

    mutable std::mutex m_mutex;
    std::condition_variable m_queueChanged;
    struct Finished
    {
        QByteArray name;
        std::unique_ptr<QFile> file;
        qint64 size;
        bool staged; // on the store's own file system, to be adopted
    };
    std::deque<Finished> m_queue;
    int m_uploading = 0;
    bool m_stopping = false;
    Status m_failure;
    QVector<Kel::Archive::PackRecord> m_packs;
    std::vector<std::thread> m_uploaders;
    // Asked for files on the store's own file system, when it has one, so
    // that a pack is written once and put in place without a copy.
    std::unique_ptr<Kel::Cloud::Backend> m_staging;

    std::atomic<quint64> m_uploadedBytes{0};
    std::atomic<quint64> m_storedBlobs{0};
};

} // namespace Orv::Repository
