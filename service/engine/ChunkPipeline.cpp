#include "service/engine/ChunkPipeline.h"

#include "kelStreams/Chunker.h"

#include <pthread.h>

namespace Orv::Engine {

using namespace Kel::Archive;
using Orv::Repository::RunWriter;
using Orv::Repository::Status;

ChunkPipeline::ChunkPipeline(RunWriter& writer, int threads, qint64 limit)
    : m_limit(std::max<qint64>(limit, 1))
{
    for (int i = 0; i < std::max(1, threads); ++i) {
        m_workers.emplace_back([this, w = writer.worker()]() mutable { loop(*w); });
    }
}

void ChunkPipeline::submit(QByteArray data, std::shared_ptr<FileSlot> slot, int index)
{
    m_batchCost += cost(data);
    m_batch.push_back({std::move(data), std::move(slot), index});
    if (m_batchCost >= kBatchBytes || m_batch.size() >= kBatchItems) {
        pushBatch();
    }
}

QByteArray ChunkPipeline::buffer(int size)
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

Status ChunkPipeline::drain()
{
    pushBatch();
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [&] { return m_pending == 0; });
    return m_failure;
}

Status ChunkPipeline::failure() const
{
    std::lock_guard lock(m_mutex);
    return m_failure;
}

Status ChunkPipeline::flush()
{
    std::unique_lock lock(m_mutex);
    m_flushes = int(m_workers.size());
    m_changed.notify_all();
    m_changed.wait(lock, [&] { return m_flushes == 0; });
    return m_failure;
}

Status ChunkPipeline::finish()
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

void ChunkPipeline::pushBatch()
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

void ChunkPipeline::loop(RunWriter::Worker& worker)
{
    // Named so that an administrator's top tells the stages apart.
    pthread_setname_np(pthread_self(), "orv-pack");
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [&] {
            return m_closing || !m_jobs.empty() || (m_flushes > 0 && m_flushed.count(&worker) == 0);
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

} // namespace Orv::Engine
