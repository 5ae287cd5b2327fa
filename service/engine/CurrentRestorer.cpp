#include "service/engine/CurrentRestorer.h"

#include "service/engine/CurrentBlocks.h"
#include "service/engine/CurrentRetention.h"
#include "service/engine/CurrentStore.h"
#include "service/engine/EntryNodes.h"

#include <QBuffer>
#include <QDir>
#include <QHash>
#include <QSet>
#include <QTemporaryFile>
#include <condition_variable>
#include <deque>
#include <mutex>
#include <thread>

namespace Orv::Engine {

using Kel::Archive::ManifestEntry;
using Kel::Archive::Node;
using Orv::Repository::failure;
using Orv::Repository::Status;

namespace {

QString text(const QByteArray& path)
{
    return QString::fromLocal8Bit(path);
}

// One file to fetch: its entry in the manifest, where it goes, and the path
// whose object holds its version (itself, or the file it is a hard link of).
struct FileJob
{
    ManifestEntry entry;
    QByteArray place;
    QByteArray owner;
};

} // namespace

// Threads that each fetch a version object over a connection of their own
// and write it into its place through the target.
class CurrentRestorer::Fetcher
{
public:
    Fetcher(CurrentRestorer& restorer, CurrentStore& store, RestoreTarget& target)
        : m_restorer(restorer), m_store(store), m_target(target)
    {
        const int threads = std::max(2, restorer.m_description.threads);
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this] { work(); });
        }
    }
    ~Fetcher() { finish(); }

    void add(FileJob job)
    {
        std::unique_lock lock(m_mutex);
        m_room.wait(lock, [this] { return m_queue.size() < 256; });
        m_queue.push_back(std::move(job));
        m_ready.notify_one();
    }

    void finish()
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
    }

    void fail(const QByteArray& path, const QString& reason)
    {
        std::lock_guard lock(m_mutex);
        failed.append(QStringLiteral("%1: %2").arg(text(path), reason));
        failedPaths.insert(path);
    }

    QStringList failed;
    QSet<QByteArray> failedPaths;
    // Versions not in the storage, by object name: told apart from those
    // retention removed once every file was tried.
    QVector<std::pair<QString, FileJob>> missing;

private:
    void work()
    {
        Status status;
        std::unique_ptr<Kel::Cloud::Backend> backend =
            m_restorer.m_repository.location().backend(&status);
        for (;;) {
            FileJob job;
            {
                std::unique_lock lock(m_mutex);
                m_ready.wait(lock, [this] { return !m_queue.empty() || m_done; });
                if (m_queue.empty()) {
                    return;
                }
                job = std::move(m_queue.front());
                m_queue.pop_front();
                m_room.notify_one();
            }
            if (m_restorer.m_stop) {
                continue;
            }
            if (!backend) {
                fail(job.entry.path, status.message);
                continue;
            }
            const QString reason = restore(*backend, job);
            if (!reason.isEmpty()) {
                fail(job.entry.path, reason);
            }
        }
    }

    // Empty when the file is in place, else why not.
    QString restore(Kel::Cloud::Backend& backend, const FileJob& job)
    {
        const ManifestEntry& entry = job.entry;
        if (!entry.base.isEmpty()) {
            const QString why =
                restoreDelta(backend, m_store, entry, job.owner, [&](QString* error) {
                    return m_target.openFile(job.place, entry.node, error);
                });
            if (why.isEmpty()) {
                ++m_restorer.filesDone;
                m_restorer.bytesDone += entry.node.size;
            }
            return why;
        }
        const QString name = m_store.versionName(job.owner, entry.version);
        QBuffer memory;
        QTemporaryFile file(QDir::tempPath() + QStringLiteral("/orv-cbf-XXXXXX"));
        QIODevice* source = &memory;
        if (qint64(entry.node.size) > kCurrentInMemory && file.open()) {
            source = &file;
        } else {
            memory.open(QIODevice::ReadWrite);
        }
        const Status status = backend.read(name, 0, -1, source);
        if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            std::lock_guard lock(m_mutex);
            missing.append({name, job});
            return QString();
        }
        if (!status.ok()) {
            return status.message;
        }
        source->seek(0);
        const QString damaged = QStringLiteral("its version %1 is damaged").arg(entry.version);
        Kel::Archive::PieceReader reader(source, m_store.keys(), name);
        QByteArray piece;
        if (!reader.start(&piece)) {
            return damaged;
        }
        QString error;
        std::unique_ptr<RestoreTarget::FileWriter> writer =
            m_target.openFile(job.place, entry.node, &error);
        if (!writer) {
            return error;
        }
        quint64 offset = 0;
        while (reader.next(&piece)) {
            if (reader.atEnd()) {
                // The last piece names the file and the version it is.
                ManifestEntry stored;
                if (!ManifestEntry::decode(piece, &stored) || stored.path != job.owner ||
                    stored.version != entry.version || stored.node.size != offset) {
                    return damaged;
                }
                if (!writer->commit(&error)) {
                    return error;
                }
                ++m_restorer.filesDone;
                m_restorer.bytesDone += offset;
                return QString();
            }
            if (!writer->write(offset, piece.constData(), std::size_t(piece.size()), &error)) {
                return error;
            }
            offset += quint64(piece.size());
        }
        return damaged;
    }

    CurrentRestorer& m_restorer;
    CurrentStore& m_store;
    RestoreTarget& m_target;
    std::vector<std::thread> m_threads;
    std::mutex m_mutex;
    std::condition_variable m_ready;
    std::condition_variable m_room;
    std::deque<FileJob> m_queue;
    bool m_done = false;
};

CurrentRestorer::CurrentRestorer(const Orv::Repository::Repository& repository,
                                 const RestoreDescription& description)
    : m_repository(repository), m_description(description)
{
}

CurrentRestorer::~CurrentRestorer() = default;

namespace {

// The run to restore: the one named, or the newest not later than the point
// in time, or the newest.
Status chooseRun(const QStringList& runs, const RestoreDescription& d, QString* run)
{
    if (!d.point.isEmpty()) {
        if (!runs.contains(d.point)) {
            return failure(QStringLiteral("There is no restore point %1.").arg(d.point));
        }
        *run = d.point;
        return Status::success();
    }
    for (auto it = runs.crbegin(); it != runs.crend(); ++it) {
        if (!d.pointInTime.isValid() ||
            Kel::Archive::CurrentLayout::runTime(*it) <= d.pointInTime.toUTC()) {
            *run = *it;
            return Status::success();
        }
    }
    return failure(d.pointInTime.isValid() ? QStringLiteral("There is no backup as early as %1.")
                                                 .arg(d.pointInTime.toUTC().toString(Qt::ISODate))
                                           : QStringLiteral("There is no backup to restore."));
}

} // namespace

// Of the versions the storage lacked, those a retention record names are
// left out quietly; the others are named as missing. The paths (the owners
// of the objects) whose versions retention removed.
QSet<QByteArray> CurrentRestorer::leaveOutRetired(CurrentStore& store, Fetcher& fetcher,
                                                  RestoreResult* result)
{
    QSet<QString> names;
    for (const auto& [name, job] : std::as_const(fetcher.missing)) {
        names.insert(name);
    }
    QSet<QString> retired;
    if (!names.isEmpty()) {
        const Status status = retiredVersions(store, names, &retired);
        if (!status.ok()) {
            retired.clear();
            fetcher.fail(
                QByteArray(),
                QStringLiteral("the retention records cannot be read: %1").arg(status.message));
        }
    }
    QSet<QByteArray> owners;
    for (const auto& [name, job] : std::as_const(fetcher.missing)) {
        if (!retired.contains(name)) {
            fetcher.fail(job.entry.path,
                         QStringLiteral("its version %1 is missing from the storage")
                             .arg(job.entry.version));
            continue;
        }
        ++result->retired;
        owners.insert(job.owner);
    }
    return owners;
}

RestoreResult CurrentRestorer::run()
{
    RestoreResult result;
    CurrentStore store(m_repository, m_description.bunch);
    Status status = store.connect();
    if (status.ok()) {
        CurrentStore::KeyRequest request;
        request.password = m_description.password;
        status = store.openKeys(request);
    }
    QStringList runs;
    if (status.ok()) {
        status = store.runs(&runs);
    }
    QString run;
    if (status.ok()) {
        status = chooseRun(runs, m_description, &run);
    }
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }

    RestoreTarget target(m_description.target);
    Fetcher fetcher(*this, store, target);
    QVector<std::pair<QByteArray, Node>> folders; // parents first: the manifest is in path order
    QVector<FileJob> links;
    QHash<QByteArray, QByteArray> linked; // place of each restored file that has hard links
    const QList<QByteArray>& paths = m_description.paths;
    // With deleted files, the paths the chosen run holds (and those taken
    // since): an earlier run adds only what none of the later ones had.
    QSet<QByteArray> seen;
    const bool withDeleted = m_description.includeDeleted && run != runs.first();
    const auto take = [&](const ManifestEntry& entry) {
        if (withDeleted) {
            seen.insert(entry.path);
        }
        const bool chosen = selected(entry.path, paths);
        if (!chosen && !(entry.node.isDirectory() && onTheWay(entry.path, paths))) {
            return !m_stop;
        }
        QString error;
        const QByteArray place = target.place(entry.path, &error);
        if (place.isEmpty()) {
            fetcher.fail(entry.path, error);
            return !m_stop;
        }
        if (entry.node.isDirectory()) {
            if (!target.makeDirectory(place, &error)) {
                fetcher.fail(entry.path, error);
            } else if (chosen) {
                folders.append({place, entry.node});
            }
            return !m_stop;
        }
        if (!target.wanted(place, entry.node)) {
            ++result.skipped;
            return !m_stop;
        }
        if (!entry.node.isFile()) {
            const bool made = entry.node.type == Node::Type::Symlink
                                  ? target.makeSymlink(place, entry.node, &error)
                                  : target.makeSpecial(place, entry.node, &error);
            if (!made) {
                fetcher.fail(entry.path, error);
            }
            return !m_stop;
        }
        FileJob job{entry, place, entry.hardLinkTo.isEmpty() ? entry.path : entry.hardLinkTo};
        if (!entry.hardLinkTo.isEmpty()) {
            links.append(job);
            return !m_stop;
        }
        if (entry.node.links > 1) {
            linked.insert(entry.path, place);
        }
        fetcher.add(std::move(job));
        return !m_stop;
    };
    Kel::Archive::ManifestHeader header;
    status = store.readManifest(run, &header, take);
    // Newest first, so that a file deleted at the source comes back as it
    // was last backed up.
    for (int i = runs.indexOf(run) - 1; withDeleted && status.ok() && i >= 0 && !m_stop; --i) {
        Kel::Archive::ManifestHeader older;
        status = store.readManifest(runs.at(i), &older, [&](const ManifestEntry& entry) {
            return seen.contains(entry.path) ? !m_stop : take(entry);
        });
    }
    if (!status.ok()) {
        result.message = status.message;
        return result;
    }
    // Hard links whose file is restored too become links to it; the others
    // are fetched from the version they share.
    for (FileJob& job : links) {
        if (!linked.contains(job.owner)) {
            fetcher.add(std::move(job));
            job.owner.clear();
        }
    }
    fetcher.finish();
    const QSet<QByteArray> retired = leaveOutRetired(store, fetcher, &result);
    for (const FileJob& job : std::as_const(links)) {
        if (job.owner.isEmpty()) {
            continue;
        }
        QString error;
        if (retired.contains(job.owner)) {
            ++result.retired;
        } else if (fetcher.failedPaths.contains(job.owner)) {
            fetcher.fail(job.entry.path,
                         QStringLiteral("the file it is a hard link of was not restored"));
        } else if (!target.makeHardLink(job.place, linked.value(job.owner), &error)) {
            fetcher.fail(job.entry.path, error);
        } else {
            ++filesDone;
        }
    }
    for (int i = folders.size() - 1; i >= 0; --i) {
        QString error;
        if (!target.finishDirectory(folders.at(i).first, folders.at(i).second, &error)) {
            fetcher.fail(folders.at(i).first, error);
        }
    }

    result.files = filesDone;
    result.bytes = bytesDone;
    result.failed = fetcher.failed;
    result.ok = result.failed.isEmpty() && !m_stop;
    result.message = m_stop      ? QStringLiteral("The restore was stopped.")
                     : result.ok ? QStringLiteral("Restore completed.")
                                 : QStringLiteral("Restore completed with %1 item(s) not restored.")
                                       .arg(result.failed.size());
    if (result.retired > 0 && !m_stop) {
        result.message += QStringLiteral(" %1 file(s) were left out: the retention policy had "
                                         "deleted their versions.")
                              .arg(result.retired);
    }
    return result;
}

} // namespace Orv::Engine
