#include "service/engine/Archiver.h"

#include "kelStreams/BandwidthLimiter.h"
#include "orvRepository/RunWriter.h"
#include "service/engine/ChunkPipeline.h"
#include "service/engine/TreeBuilder.h"

#include <algorithm>

namespace Orv::Engine {

using namespace Kel::Archive;
using Orv::Repository::RunWriter;
using Orv::Repository::Status;

namespace {

// Bytes of chunks in flight per worker thread.
constexpr qint64 kChunksPerThread = 4 * 1024 * 1024;

} // namespace

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
        ChunkPipeline pipeline(*writer, m_description.threads, inFlight);
        TreeBuilder builder(m_description, m_progress, m_stop, *writer, pipeline);
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
