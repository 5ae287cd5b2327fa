#include "service/engine/CurrentRetention.h"

#include "kelBackupFormat/Bytes.h"
#include "orvRepository/CurrentCache.h"
#include "service/engine/CurrentStore.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTemporaryFile>
#include <algorithm>

namespace Orv::Engine {

using Kel::Archive::CurrentLayout;
using Kel::Archive::ManifestEntry;
using Orv::Repository::failure;
using Orv::Repository::Status;
using Orv::Repository::StoredVersion;

namespace {

// Bytes of version names in one piece of a record.
constexpr int kRecordPiece = 1024 * 1024;

QDateTime modified(const StoredVersion& version)
{
    return QDateTime::fromMSecsSinceEpoch(version.mtimeNs / 1000000, Qt::UTC);
}

QString temporaryTemplate(const RunDescription& d)
{
    return (d.temporaryPath.isEmpty() ? QDir::tempPath() : d.temporaryPath) +
           QStringLiteral("/orv-cbf-XXXXXX");
}

// Calls back with every version name a retention record holds.
Status readRecord(CurrentStore& store, const QString& run,
                  const std::function<void(const QString&)>& callback)
{
    QTemporaryFile file;
    if (!file.open()) {
        return failure(QStringLiteral("Cannot make a temporary file: %1").arg(file.errorString()));
    }
    const QString name = store.layout().retention(store.plan(), run);
    const Status status = store.fetch(name, &file);
    if (!status.ok()) {
        return status;
    }
    Kel::Archive::PieceReader reader(&file, store.keys(), name);
    QByteArray piece;
    const Status damaged =
        failure(QStringLiteral("The retention record of the run %1 is damaged.").arg(run));
    if (!reader.start(&piece)) {
        return damaged;
    }
    while (!reader.atEnd()) {
        if (!reader.next(&piece)) {
            return damaged;
        }
        Kel::Archive::ByteReader r(piece);
        while (!r.atEnd()) {
            const QByteArray version = r.bytes();
            if (!r.ok()) {
                return damaged;
            }
            callback(QString::fromUtf8(version));
        }
    }
    return Status::success();
}

// The runs that have retention records in the storage.
Status recordRuns(CurrentStore& store, QStringList* runs)
{
    const QString prefix = store.layout().retentions(store.plan());
    QList<Kel::Cloud::ObjectInfo> objects;
    const Status status = store.backend().list(prefix, &objects);
    runs->clear();
    for (const auto& object : std::as_const(objects)) {
        const QString run = object.name.mid(prefix.size());
        if (CurrentLayout::runTime(run).isValid()) {
            runs->append(run);
        }
    }
    return status;
}

} // namespace

QVector<int> versionsToRemove(const QVector<StoredVersion>& versions, const QDateTime& goneSince,
                              const RunDescription::VersionRetention& policy, const QDateTime& now)
{
    const int count = versions.size();
    QVector<int> removed;
    const bool gone = goneSince.isValid();
    if (gone && policy.deletedAfterDays >= 0 && goneSince.addDays(policy.deletedAfterDays) <= now) {
        for (int i = 0; i < count; ++i) {
            removed.append(i);
        }
        return removed;
    }
    QVector<bool> remove(count, false);
    const QDateTime cutoff = policy.age.count > 0 ? policy.age.cutoff(now) : QDateTime();
    for (int i = 0; i < count; ++i) {
        const StoredVersion& v = versions.at(i);
        const QDateTime date = policy.fromBackupDate ? CurrentLayout::runTime(v.run) : modified(v);
        remove[i] = (policy.keep > 0 && i < count - policy.keep) ||
                    (cutoff.isValid() && date.isValid() && date < cutoff);
    }
    if (count > 0 && (!gone || policy.keepLast)) {
        remove[count - 1] = false;
    }
    // Newest first, so that a kept version's base is known kept before the
    // versions older than it are looked at.
    for (int i = count - 1; i >= 0; --i) {
        if (remove.at(i) || versions.at(i).base.isEmpty()) {
            continue;
        }
        for (int j = 0; j < i; ++j) {
            if (versions.at(j).run == versions.at(i).base) {
                remove[j] = false;
            }
        }
    }
    for (int i = 0; i < count; ++i) {
        if (remove.at(i)) {
            removed.append(i);
        }
    }
    return removed;
}

CurrentRetention::CurrentRetention(CurrentStore& store, const RunDescription& description)
    : m_store(store), m_description(description)
{
}

CurrentRetention::~CurrentRetention() = default;

Status CurrentRetention::open(const QString& path)
{
    QString error;
    m_index = Orv::Repository::CurrentVersions::open(path, &error);
    return m_index ? Status::success() : failure(error);
}

void CurrentRetention::started(const QString& run)
{
    m_index->addPending(run);
}

QString CurrentRetention::nameOf(const ManifestEntry& entry) const
{
    return m_store.versionName(entry.path, entry.version)
        .mid(m_store.layout().plan(m_store.plan()).size());
}

void CurrentRetention::committed(const QString& run, Orv::Repository::CurrentCache& cache)
{
    // Kept only while a policy uses it: when one comes later, the manifests
    // of the runs before it are read once.
    if (!m_description.versions.deletes()) {
        return;
    }
    m_index->begin();
    cache.forEach([&](const ManifestEntry& entry) {
        m_index->addEntry(run, entry, [&] { return nameOf(entry); });
        return true;
    });
    m_index->addManifest(run);
    m_index->commit();
}

Status CurrentRetention::catchUp(const QStringList& runs, bool* read)
{
    const QSet<QString> known = m_index->manifests();
    for (const QString& run : runs) {
        if (known.contains(run)) {
            continue;
        }
        *read = true;
        Kel::Archive::ManifestHeader header;
        m_index->begin();
        const Status status = m_store.readManifest(run, &header, [&](const ManifestEntry& entry) {
            m_index->addEntry(run, entry, [&] { return nameOf(entry); });
            return true;
        });
        if (status.ok()) {
            m_index->addManifest(run);
        }
        m_index->commit();
        if (!status.ok()) {
            return status;
        }
    }
    return Status::success();
}

// Records this index does not know: written elsewhere, or by a pass cut off
// before it noted its own.
Status CurrentRetention::learnRecords()
{
    QStringList runs;
    Status status = recordRuns(m_store, &runs);
    const QSet<QString> known = m_index->records();
    for (const QString& run : std::as_const(runs)) {
        if (!status.ok()) {
            break;
        }
        if (known.contains(run)) {
            continue;
        }
        m_index->begin();
        status =
            readRecord(m_store, run, [&](const QString& name) { m_index->markRemoved(run, name); });
        if (status.ok()) {
            m_index->addRecord(run);
        }
        m_index->commit();
    }
    return status;
}

Status CurrentRetention::finishRecord(const QString& record, quint64* removed)
{
    const QString root = m_store.layout().plan(m_store.plan());
    Status status = Status::success();
    m_index->forEachRemoved(record, [&](const QString& name) {
        status = m_store.backend().remove(root + name);
        *removed += status.ok() ? 1 : 0;
        return status.ok();
    });
    if (status.ok()) {
        m_index->finishRecord(record);
    }
    return status;
}

Status CurrentRetention::decide(const QString& run, const QStringList& runs, quint64* removed)
{
    QTemporaryFile file(temporaryTemplate(m_description));
    if (!file.open()) {
        return failure(QStringLiteral("Cannot make a temporary file: %1").arg(file.errorString()));
    }
    const QString name = m_store.layout().retention(m_store.plan(), run);
    const QByteArray header =
        QJsonDocument(QJsonObject{{"run", run}}).toJson(QJsonDocument::Compact);
    Kel::Archive::PieceWriter writer(&file, m_store.keys(), m_description.compression, name,
                                     header);
    const QDateTime now = m_description.now();
    QByteArray piece;
    quint64 count = 0;
    bool written = true;
    m_index->forEachFile(
        [&](const QByteArray&, const QVector<StoredVersion>& versions, const QString& lastSeen) {
            QDateTime goneSince;
            if (!lastSeen.isEmpty() && lastSeen < run) {
                const auto next = std::upper_bound(runs.begin(), runs.end(), lastSeen);
                goneSince = next == runs.end() ? now : CurrentLayout::runTime(*next);
            }
            for (const int i : versionsToRemove(versions, goneSince, m_description.versions, now)) {
                Kel::Archive::ByteWriter(&piece).bytes(versions.at(i).name.toUtf8());
                ++count;
            }
            if (piece.size() >= kRecordPiece) {
                written = written && writer.write(piece, false);
                piece.clear();
            }
            return written;
        });
    written = written && writer.write(piece, true) && file.flush();
    if (!written) {
        return failure(QStringLiteral("Cannot write a temporary file: %1").arg(file.errorString()));
    }
    if (count == 0) {
        return Status::success();
    }
    // What is decided is stored before anything is deleted.
    file.seek(0);
    Status status = m_store.backend().write(name, &file, file.size());
    if (!status.ok()) {
        return status;
    }
    file.seek(0);
    Kel::Archive::PieceReader reader(&file, m_store.keys(), name);
    m_index->begin();
    bool read = reader.start(&piece);
    while (read && !reader.atEnd()) {
        read = reader.next(&piece);
        Kel::Archive::ByteReader r(piece);
        while (read && !r.atEnd()) {
            const QByteArray version = r.bytes();
            read = r.ok();
            m_index->markRemoved(run, QString::fromUtf8(version));
        }
    }
    m_index->addRecord(run);
    m_index->commit();
    return finishRecord(run, removed);
}

// Version objects of runs before this one that have no manifest: those runs
// were cut off or failed, since a plan runs one run at a time. Only runs
// that started a day or more ago: the same plan started on another machine
// (a configuration imported there) may be uploading right now, and its
// versions must not vanish under its manifest.
Status CurrentRetention::sweep(const QString& run, const QStringList& runs, quint64* removed)
{
    const QDateTime settled = m_description.now().addDays(-1);
    const QString prefix = m_store.layout().plan(m_store.plan()) + QStringLiteral("files/");
    QList<Kel::Cloud::ObjectInfo> objects;
    Status status = m_store.backend().list(prefix, &objects);
    if (!status.ok()) {
        return status;
    }
    const QSet<QString> committed(runs.begin(), runs.end());
    for (const auto& object : std::as_const(objects)) {
        const int at = object.name.lastIndexOf(QStringLiteral("/@"));
        const QString owner = at < 0 ? QString() : object.name.mid(at + 2);
        const QDateTime started = CurrentLayout::runTime(owner);
        if (owner.isEmpty() || owner >= run || committed.contains(owner) || !started.isValid() ||
            started > settled) {
            continue;
        }
        status = m_store.backend().remove(object.name);
        if (!status.ok()) {
            return status;
        }
        ++*removed;
    }
    return Status::success();
}

Status CurrentRetention::apply(const QString& run, const QStringList& runs, Removed* removed)
{
    QStringList interrupted = m_index->pending();
    interrupted.removeAll(run);
    const bool deletes = m_description.versions.deletes();
    Status status = Status::success();
    // Listing every version object costs: it is done when a run here was
    // cut off, and when the index was new to some manifests (a first pass,
    // a lost cache, another machine's runs), which is when leftovers of runs
    // cut off elsewhere may appear.
    bool unknown = false;
    if (deletes) {
        status = catchUp(runs, &unknown);
    }
    // A run cut off here may have stored its record without noting it.
    if (status.ok() && (deletes || !interrupted.isEmpty())) {
        status = learnRecords();
    }
    // A pass cut off after its record was stored: its deletion is finished
    // first, whatever the policy says now.
    for (const QString& record : m_index->unfinishedRecords()) {
        if (status.ok()) {
            status = finishRecord(record, &removed->versions);
        }
    }
    if (status.ok() && deletes) {
        status = decide(run, runs, &removed->versions);
    }
    if (status.ok() && (unknown || !interrupted.isEmpty())) {
        status = sweep(run, runs, &removed->leftovers);
    }
    if (status.ok()) {
        // A run cut off less than a day ago keeps its mark: its objects are
        // swept by a later run.
        const QDateTime settled = m_description.now().addDays(-1);
        for (const QString& other : std::as_const(interrupted)) {
            const QDateTime started = CurrentLayout::runTime(other);
            if (!started.isValid() || started <= settled) {
                m_index->removePending(other);
            }
        }
    }
    m_index->removePending(run);
    return status;
}

Status retiredVersions(CurrentStore& store, const QSet<QString>& missing, QSet<QString>* retired)
{
    QStringList runs;
    Status status = recordRuns(store, &runs);
    const QString root = store.layout().plan(store.plan());
    for (const QString& run : std::as_const(runs)) {
        if (!status.ok() || retired->size() == missing.size()) {
            break;
        }
        status = readRecord(store, run, [&](const QString& name) {
            if (missing.contains(root + name)) {
                retired->insert(root + name);
            }
        });
    }
    return status;
}

} // namespace Orv::Engine
