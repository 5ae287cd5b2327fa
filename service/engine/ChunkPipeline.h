#pragma once

#include "orvRepository/RunWriter.h"

#include <QByteArray>
#include <QVector>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

namespace Orv::Engine {

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
class ChunkPipeline
{
public:
    ChunkPipeline(Orv::Repository::RunWriter& writer, int threads, qint64 limit);

    ~ChunkPipeline() { finish(); }

    // Small chunks (small files) travel in batches, so that the threads hand
    // over work, and wake each other, once per batch rather than per file.
    // Only the reading thread calls submit, drain, flush and finish.
    void submit(QByteArray data, std::shared_ptr<FileSlot> slot, int index);

    // A buffer for a chunk of the given size, from those the workers gave
    // back: chunks in flight reuse a few buffers instead of allocating (and
    // faulting in) fresh memory for each.
    QByteArray buffer(int size);

    // Waits until every submitted chunk is stored.
    Orv::Repository::Status drain();

    Orv::Repository::Status failure() const;

    // Hands every worker's open pack to the uploads, the threads going on.
    Orv::Repository::Status flush();

    // Stores what is left, flushes every worker's pack, ends the threads.
    Orv::Repository::Status finish();

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

    void pushBatch();

    void loop(Orv::Repository::RunWriter::Worker& worker);

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
    int m_flushes = 0;                                       // workers yet to flush
    std::set<Orv::Repository::RunWriter::Worker*> m_flushed; // workers that did
    Orv::Repository::Status m_failure;
    std::vector<std::thread> m_workers;
};

} // namespace Orv::Engine
