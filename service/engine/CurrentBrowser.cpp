#include "service/engine/CurrentBrowser.h"

#include "orvRepository/CurrentCache.h"
#include "service/engine/CurrentRetention.h"

#include <QBuffer>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QSet>
#include <QTemporaryFile>
#include <algorithm>

namespace Orv::Engine {

using Kel::Archive::CurrentLayout;
using Kel::Archive::ManifestEntry;
using Kel::Archive::ManifestHeader;
using Kel::Archive::Node;
using Orv::Repository::CurrentCache;
using Orv::Repository::failure;
using Orv::Repository::Status;

namespace {

// A manifest's clear header is a few hundred bytes: a listing reads only the
// start of each manifest, and the whole object only when that falls short.
constexpr qint64 kHeaderRead = 4096;

QByteArray normalised(const QByteArray& path)
{
    QByteArray clean = path;
    while (clean.size() > 1 && clean.endsWith('/')) {
        clean.chop(1);
    }
    return clean.isEmpty() ? QByteArray("/") : clean;
}

// The storage's failure, if any; *readable tells whether the header decoded.
Status readHeader(Kel::Cloud::Backend& backend, const QString& name, ManifestHeader* header,
                  bool* readable)
{
    QByteArray bytes;
    Status status = backend.read(name, 0, kHeaderRead, &bytes);
    *readable = status.ok() && Kel::Archive::readManifestHeader(bytes, header);
    if (status.ok() && !*readable && bytes.size() >= kHeaderRead) {
        status = backend.read(name, 0, -1, &bytes);
        *readable = status.ok() && Kel::Archive::readManifestHeader(bytes, header);
    }
    return status;
}

// A run whose header cannot be read still shows, as a failed run at the time
// its name tells, so that nothing in the storage goes unseen.
ManifestHeader unreadable(const QString& run)
{
    ManifestHeader header;
    header.run = run;
    header.start = CurrentLayout::runTime(run);
    header.end = header.start;
    header.status = Kel::Archive::PointStatus::Failure;
    header.errors = 1;
    return header;
}

void removeCacheFiles(const QString& path)
{
    for (const QString& suffix : {QString(), QStringLiteral("-wal"), QStringLiteral("-shm")}) {
        QFile::remove(path + suffix);
    }
}

// Empty when the version object reads whole and names itself as expected,
// else what is wrong with it. size is the file's size when the version holds
// the file whole, -1 when it holds changed blocks only.
const QString kMissing = QStringLiteral("is missing from the storage");

QString verify(Kel::Cloud::Backend& backend, const Kel::Archive::KeySet& keys, const QString& name,
               const QByteArray& owner, const QString& version, qint64 size)
{
    QBuffer memory;
    QTemporaryFile file(QDir::tempPath() + QStringLiteral("/orv-cbf-XXXXXX"));
    QIODevice* source = &memory;
    if ((size < 0 || size > kCurrentInMemory) && file.open()) {
        source = &file;
    } else {
        memory.open(QIODevice::ReadWrite);
    }
    const Status status = backend.read(name, 0, -1, source);
    if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
        return kMissing;
    }
    if (!status.ok()) {
        return QStringLiteral("cannot be read: %1").arg(status.message);
    }
    source->seek(0);
    Kel::Archive::PieceReader reader(source, keys, name);
    QByteArray piece;
    qint64 content = 0;
    bool started = reader.start(&piece);
    while (started && reader.next(&piece)) {
        if (!reader.atEnd()) {
            content += piece.size();
            continue;
        }
        ManifestEntry stored;
        const bool whole = ManifestEntry::decode(piece, &stored) && stored.path == owner &&
                           stored.version == version && (size < 0 || content == size);
        return whole ? QString() : QStringLiteral("is damaged");
    }
    return QStringLiteral("is damaged");
}

} // namespace

CurrentBrowser::CurrentBrowser(const Orv::Repository::Repository& repository)
    : m_repository(repository)
{
}

QString CurrentBrowser::cachePath(const QString& plan) const
{
    // The name the backups of the plan use.
    return m_repository.cachePath(QStringLiteral("cbf-") + plan);
}

Status CurrentBrowser::plans(QList<CurrentPlanInfo>* plans, bool newestOnly) const
{
    plans->clear();
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        return status.ok() ? failure(QStringLiteral("The storage cannot be used.")) : status;
    }
    // Each plan leaves a marker; a storage written before markers has
    // none, and its plans are found from their keys among every object.
    const CurrentLayout layout(m_repository.location().prefix);
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(layout.planMarkers(), &objects);
    QStringList ids;
    for (const Kel::Cloud::ObjectInfo& object : std::as_const(objects)) {
        ids.append(object.name.mid(layout.planMarkers().size()));
    }
    const QString root = layout.root();
    if (status.ok() && ids.isEmpty()) {
        status = backend->list(root, &objects);
    }
    if (!status.ok()) {
        return status;
    }
    for (const Kel::Cloud::ObjectInfo& object : std::as_const(objects)) {
        const QString rest = object.name.mid(root.size());
        const QString id = rest.section(QLatin1Char('/'), 0, 0);
        if (!id.isEmpty() && rest == id + QStringLiteral("/keys") && !ids.contains(id)) {
            ids.append(id);
        }
    }
    std::sort(ids.begin(), ids.end());
    for (const QString& id : std::as_const(ids)) {
        CurrentPlanInfo info;
        bool found = false;
        status = plan(id, &info, &found, newestOnly);
        if (!status.ok()) {
            return status;
        }
        if (found) {
            plans->append(info);
        }
    }
    return Status::success();
}

Status CurrentBrowser::plan(const QString& plan, CurrentPlanInfo* info, bool* found,
                            bool newestOnly) const
{
    *found = false;
    CurrentStore store(m_repository, plan);
    Status status = store.connect();
    QByteArray bytes;
    if (status.ok()) {
        status = store.backend().read(store.layout().keys(plan), 0, -1, &bytes);
    }
    if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
        return Status::success();
    }
    if (!status.ok()) {
        return status;
    }
    Kel::Archive::GenerationRecord keys;
    if (!Kel::Archive::GenerationRecord::decode(bytes, &keys) || keys.id != plan) {
        return failure(QStringLiteral("The keys of the plan %1 are damaged.").arg(plan));
    }
    QStringList runs;
    status = store.runs(&runs);
    if (!status.ok()) {
        return status;
    }
    if (newestOnly && runs.size() > 1) {
        runs = runs.mid(runs.size() - 1);
    }
    info->plan = plan;
    info->name = plan;
    info->encrypted = keys.encrypted();
    info->hint = keys.hint.toBase64();
    info->runs.clear();
    for (const QString& run : std::as_const(runs)) {
        ManifestHeader header;
        bool readable = false;
        status =
            readHeader(store.backend(), store.layout().manifest(plan, run), &header, &readable);
        if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            continue; // removed since it was listed
        }
        if (!status.ok()) {
            return status;
        }
        info->runs.append(readable && header.run == run ? header : unreadable(run));
        if (!header.planName.isEmpty()) {
            info->name = header.planName;
        }
    }
    info->cacheStale = !info->runs.isEmpty();
    QString error;
    if (info->cacheStale && QFileInfo::exists(cachePath(plan))) {
        if (std::unique_ptr<CurrentCache> cache = CurrentCache::open(cachePath(plan), &error)) {
            info->cacheStale = cache->manifest() != info->runs.constLast().run;
        }
    }
    *found = true;
    return Status::success();
}

Status CurrentBrowser::open(CurrentStore& store, const QByteArray& password) const
{
    Status status = store.connect();
    if (status.ok()) {
        CurrentStore::KeyRequest request;
        request.password = password;
        status = store.openKeys(request);
    }
    return status;
}

Status CurrentBrowser::list(const QString& plan, const QString& run, const QByteArray& password,
                            const QByteArray& path, int offset, int limit,
                            QList<ManifestEntry>* entries, int* next) const
{
    entries->clear();
    *next = -1;
    CurrentStore store(m_repository, plan);
    Status status = open(store, password);
    if (!status.ok()) {
        return status;
    }
    const QByteArray folder = normalised(path);
    const QByteArray prefix = folder == "/" ? folder : folder + '/';
    const int first = std::max(0, offset);
    bool isFolder = folder == "/";
    int index = 0;
    QSet<QByteArray> names;
    ManifestHeader header;
    status = store.readManifest(run, &header, [&](const ManifestEntry& entry) {
        if (entry.path == folder) {
            isFolder = entry.node.isDirectory();
            return true;
        }
        if (!entry.path.startsWith(prefix)) {
            // The manifest is in byte order: the folder's entries are behind.
            return entry.path < prefix;
        }
        const QByteArray rest = entry.path.mid(prefix.size());
        const int slash = rest.indexOf('/');
        const QByteArray name = slash < 0 ? rest : rest.left(slash);
        isFolder = true;
        if (names.contains(name)) {
            return true;
        }
        names.insert(name);
        if (limit > 0 && index >= first + limit) {
            *next = index;
            return false;
        }
        if (index++ < first) {
            return true;
        }
        ManifestEntry child = entry;
        if (slash >= 0) {
            child = ManifestEntry();
            child.path = prefix + name;
            child.node.name = name;
            child.node.type = Node::Type::Directory;
            child.node.mode = 0755;
        }
        entries->append(child);
        return true;
    });
    if (!status.ok()) {
        return status;
    }
    if (!isFolder) {
        entries->clear();
        *next = -1;
        return failure(QStringLiteral("The restore point holds no folder %1.")
                           .arg(QString::fromLocal8Bit(folder)));
    }
    return Status::success();
}

Status CurrentBrowser::exists(const QString& plan, const QString& run, const QByteArray& password,
                              const QList<QByteArray>& paths, QList<bool>* found) const
{
    CurrentStore store(m_repository, plan);
    Status status = open(store, password);
    if (!status.ok()) {
        return status;
    }
    QHash<QByteArray, bool> wanted;
    for (const QByteArray& path : paths) {
        wanted.insert(normalised(path), normalised(path) == "/");
    }
    int left = int(std::count(wanted.cbegin(), wanted.cend(), false));
    ManifestHeader header;
    status = store.readManifest(run, &header, [&](const ManifestEntry& entry) {
        // The path itself and every folder above it are in the run.
        for (int end = entry.path.size(); end > 0; end = entry.path.lastIndexOf('/', end - 1)) {
            const auto it = wanted.find(entry.path.left(end));
            if (it != wanted.end() && !it.value()) {
                it.value() = true;
                --left;
            }
        }
        return left > 0;
    });
    found->clear();
    for (const QByteArray& path : paths) {
        found->append(wanted.value(normalised(path)));
    }
    return status;
}

Status CurrentBrowser::deepSync(const QString& plan, const QByteArray& password) const
{
    const QString path = cachePath(plan);
    const bool hadCache = QFileInfo::exists(path);
    QString error;
    std::unique_ptr<CurrentCache> cache = CurrentCache::open(path, &error);
    if (!cache) {
        return failure(error);
    }
    CurrentStore store(m_repository, plan);
    Status status = store.connect();
    if (status.ok()) {
        CurrentStore::KeyRequest request;
        request.password = password;
        // The keys unlocked here spare the next run their derivation.
        status = store.openKeys(request, cache.get());
    }
    QStringList runs;
    if (status.ok()) {
        status = store.runs(&runs);
    }
    if (!status.ok()) {
        cache.reset();
        if (!hadCache) {
            removeCacheFiles(path);
        }
        return status;
    }
    const QString newest = runs.isEmpty() ? QString() : runs.constLast();
    cache->beginRebuild();
    if (!newest.isEmpty()) {
        ManifestHeader header;
        status = store.readManifest(newest, &header, [&cache](const ManifestEntry& entry) {
            cache->putLast(entry);
            return true;
        });
    }
    cache->finishRebuild(status.ok() ? newest : QString());
    return status;
}

Status CurrentBrowser::check(const QString& plan, const QByteArray& password,
                             QStringList* problems) const
{
    problems->clear();
    CurrentStore store(m_repository, plan);
    Status status = open(store, password);
    QStringList runs;
    if (status.ok()) {
        status = store.runs(&runs);
    }
    if (!status.ok()) {
        return status;
    }
    // Object names already read; one per version, not per file and run.
    QSet<QString> checked;
    // Versions the storage lacks, with what is said of each: those a
    // retention record names were removed on purpose and are no problem.
    QVector<std::pair<QString, QString>> missing;
    QString name;
    auto checkOnce = [&](const QString& object, const QByteArray& owner, const QString& version,
                         qint64 size) -> QString {
        name = object;
        if (checked.contains(object)) {
            return {};
        }
        checked.insert(object);
        return verify(store.backend(), store.keys(), object, owner, version, size);
    };
    auto report = [&](const QString& problem, const QString& text) {
        if (problem == kMissing) {
            missing.append({name, text});
        } else {
            problems->append(text);
        }
    };
    for (const QString& run : std::as_const(runs)) {
        ManifestHeader header;
        const Status read = store.readManifest(run, &header, [&](const ManifestEntry& entry) {
            if (!entry.node.isFile() || entry.version.isEmpty()) {
                return true;
            }
            const QByteArray owner = entry.hardLinkTo.isEmpty() ? entry.path : entry.hardLinkTo;
            const QString path = QString::fromLocal8Bit(entry.path);
            const qint64 size = entry.base.isEmpty() ? qint64(entry.node.size) : -1;
            QString problem =
                checkOnce(store.versionName(owner, entry.version), owner, entry.version, size);
            if (!problem.isEmpty()) {
                report(problem, QStringLiteral("%1: its version %2 (run %3) %4")
                                    .arg(path, entry.version, run, problem));
            }
            if (!entry.base.isEmpty()) {
                problem = checkOnce(store.versionName(owner, entry.base), owner, entry.base, -1);
                if (!problem.isEmpty()) {
                    report(problem,
                           QStringLiteral("%1: the full version %2 that its version %3 (run %4) "
                                          "builds on %5")
                               .arg(path, entry.base, entry.version, run, problem));
                }
            }
            return true;
        });
        if (!read.ok()) {
            problems->append(read.message);
        }
    }
    QSet<QString> names;
    for (const auto& [object, text] : std::as_const(missing)) {
        names.insert(object);
    }
    QSet<QString> retired;
    if (!names.isEmpty() && !(status = retiredVersions(store, names, &retired)).ok()) {
        problems->append(
            QStringLiteral("the retention records cannot be read: %1").arg(status.message));
    }
    for (const auto& [object, text] : std::as_const(missing)) {
        if (!retired.contains(object)) {
            problems->append(text);
        }
    }
    return Status::success();
}

Status CurrentBrowser::checkPresence(const QString& plan, const QByteArray& password,
                                     const QString& run, QStringList* problems) const
{
    problems->clear();
    CurrentStore store(m_repository, plan);
    Status status = open(store, password);
    QList<Kel::Cloud::ObjectInfo> objects;
    if (status.ok()) {
        status =
            store.backend().list(store.layout().plan(plan) + QStringLiteral("files/"), &objects);
    }
    if (!status.ok()) {
        return status;
    }
    QSet<QString> present;
    for (const Kel::Cloud::ObjectInfo& object : std::as_const(objects)) {
        if (object.size != 0) {
            present.insert(object.name);
        }
    }
    ManifestHeader header;
    const Status read = store.readManifest(run, &header, [&](const ManifestEntry& entry) {
        if (!entry.node.isFile() || entry.version.isEmpty()) {
            return true;
        }
        const QByteArray owner = entry.hardLinkTo.isEmpty() ? entry.path : entry.hardLinkTo;
        for (const QString& version : {entry.version, entry.base}) {
            if (!version.isEmpty() && !present.contains(store.versionName(owner, version))) {
                problems->append(QStringLiteral("%1: its version %2 is missing")
                                     .arg(QString::fromLocal8Bit(entry.path), version));
            }
        }
        return true;
    });
    if (!read.ok()) {
        problems->append(read.message);
    }
    return Status::success();
}

Status CurrentBrowser::remove(const QString& plan) const
{
    CurrentStore store(m_repository, plan);
    Status status = store.connect();
    QList<Kel::Cloud::ObjectInfo> objects;
    if (status.ok()) {
        status = store.backend().list(store.layout().plan(plan), &objects);
    }
    if (!status.ok()) {
        return status;
    }
    const QString manifests = store.layout().manifests(plan);
    const QString keys = store.layout().keys(plan);
    // Manifests, then versions, then the keys: a removal cut off leaves a plan
    // that lists only what can still be read, and is found to be removed again.
    auto rank = [&](const QString& name) {
        return name.startsWith(manifests) ? 0 : name == keys ? 2 : 1;
    };
    std::stable_sort(objects.begin(), objects.end(),
                     [&](const Kel::Cloud::ObjectInfo& a, const Kel::Cloud::ObjectInfo& b) {
                         return rank(a.name) < rank(b.name);
                     });
    for (int i = 0; status.ok() && i < objects.size(); ++i) {
        status = store.backend().remove(objects.at(i).name);
    }
    if (status.ok()) {
        status = store.backend().remove(store.layout().planMarker(plan));
    }
    if (status.ok()) {
        removeCacheFiles(cachePath(plan));
    }
    return status;
}

} // namespace Orv::Engine
