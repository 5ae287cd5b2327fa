#include "orvRepository/Repository.h"

#include "orvRepository/Generation.h"

#include <QCryptographicHash>
#include <QFile>
#include <QMap>
#include <algorithm>

namespace Orv::Repository {

using namespace Kel::Archive;

namespace {

QString lastPart(const QString& name)
{
    return name.mid(name.lastIndexOf('/') + 1);
}

Status removeAll(Kel::Cloud::Backend& backend, const QString& prefix)
{
    QList<Kel::Cloud::ObjectInfo> objects;
    Status status = backend.list(prefix, &objects);
    for (int i = 0; status.ok() && i < objects.size(); ++i) {
        status = backend.remove(objects.at(i).name);
    }
    return status;
}

} // namespace

Status failure(const QString& message)
{
    return Status::failure(Kel::Cloud::Operation::Error::Unknown, message);
}

Repository::Repository(const Location& location) : m_location(location) {}

QString Repository::cachePath(const QString& bunch) const
{
    // One file per prefix and bunch; the prefix is hashed so that any text
    // makes a valid file name.
    const QByteArray prefix =
        QCryptographicHash::hash(m_location.prefix.toUtf8(), QCryptographicHash::Sha256).toHex();
    return m_location.cacheFolder + '/' + QString::fromLatin1(prefix.left(16)) + '-' + bunch +
           QStringLiteral(".cache");
}

std::unique_ptr<Cache> Repository::openCache(const QString& bunch, QString* error) const
{
    return Cache::open(cachePath(bunch), error);
}

Status Repository::bunches(QList<BunchInfo>* bunches) const
{
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_location.backend(&status);
    if (!backend) {
        return status;
    }
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(layout().bunches(), &objects);
    bunches->clear();
    for (const auto& object : objects) {
        QByteArray bytes;
        BunchRecord record;
        if (status.ok()) {
            status = backend->read(object.name, 0, -1, &bytes);
        }
        if (status.ok() && BunchRecord::decode(bytes, &record) &&
            record.id == lastPart(object.name)) {
            bunches->append({record.id, record.planName});
        }
    }
    std::sort(bunches->begin(), bunches->end(),
              [](const BunchInfo& a, const BunchInfo& b) { return a.name < b.name; });
    return status;
}

Status Repository::generations(const QString& bunch, QList<GenerationInfo>* generations) const
{
    generations->clear();
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_location.backend(&status);
    if (!backend) {
        return status;
    }
    QList<Kel::Cloud::ObjectInfo> points;
    status = backend->list(layout().points(bunch), &points);
    if (!status.ok()) {
        return status;
    }
    QString error;
    std::unique_ptr<Cache> cache = openCache(bunch, &error);
    QMap<QString, QList<PointInfo>> byGeneration;
    for (const auto& object : points) {
        // The cache holds the records of points it loaded; others are read.
        QByteArray bytes = cache ? cache->pointRecord(object.name.section('/', -2, -2),
                                                      object.name.section('/', -1))
                                 : QByteArray();
        if (bytes.isEmpty()) {
            status = backend->read(object.name, 0, -1, &bytes);
        }
        if (!status.ok()) {
            return status;
        }
        PointRecord record;
        if (!PointRecord::decodeHeader(bytes, &record)) {
            continue;
        }
        PointInfo info;
        info.id = record.id;
        info.generation = object.name.section('/', -2, -2);
        info.type = record.type;
        info.start = record.start;
        info.end = record.end;
        info.status = record.status;
        info.warnings = record.warnings;
        info.errors = record.errors;
        byGeneration[info.generation].append(info);
    }
    for (auto it = byGeneration.begin(); it != byGeneration.end(); ++it) {
        QByteArray bytes;
        GenerationRecord record;
        status = backend->read(layout().generationRecord(bunch, it.key()), 0, -1, &bytes);
        if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            continue; // a generation being deleted
        }
        if (!status.ok()) {
            return status;
        }
        if (!GenerationRecord::decode(bytes, &record)) {
            continue;
        }
        QList<PointInfo>& list = it.value();
        std::sort(list.begin(), list.end(),
                  [](const PointInfo& a, const PointInfo& b) { return a.id < b.id; });
        QStringList stored;
        GenerationInfo info;
        info.id = it.key();
        info.encrypted = record.encrypted();
        info.hint = record.hint.toBase64();
        for (PointInfo& p : list) {
            p.encrypted = info.encrypted;
            info.warningCount += p.warnings;
            info.errorCount += p.errors;
            stored.append(p.id);
        }
        info.needsDeepSync = !cache || cache->points(info.id) != stored;
        for (PointInfo& p : list) {
            p.needsDeepSync = info.needsDeepSync;
        }
        info.firstPoint = list.first().start;
        info.lastPoint = list.last().start;
        info.points = list;
        generations->append(info);
    }
    return Status::success();
}

Status Repository::removeGeneration(const QString& bunch, const QString& generation) const
{
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_location.backend(&status);
    if (!backend) {
        return status;
    }
    status = removeAll(*backend, layout().points(bunch, generation));
    if (status.ok()) {
        status = removeAll(*backend, layout().data(bunch, generation));
    }
    if (status.ok()) {
        status = backend->remove(layout().generationRecord(bunch, generation));
    }
    QString error;
    if (std::unique_ptr<Cache> cache = openCache(bunch, &error)) {
        cache->forget(generation);
    }
    return status;
}

Status Repository::removeBunch(const QString& bunch) const
{
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_location.backend(&status);
    if (!backend) {
        return status;
    }
    // Restore points first, so that nothing half-removed is ever listed.
    status = removeAll(*backend, layout().points(bunch));
    if (status.ok()) {
        status = removeAll(*backend, layout().bunch(bunch));
    }
    if (status.ok()) {
        status = backend->remove(layout().bunchRecord(bunch));
    }
    if (status.ok()) {
        const QString path = cachePath(bunch);
        for (const QString& suffix : {QString(), QStringLiteral("-wal"), QStringLiteral("-shm")}) {
            QFile::remove(path + suffix);
        }
    }
    return status;
}

Status Repository::applyRetention(const QString& bunch, const QDateTime& cutoff,
                                  QStringList* removed) const
{
    QList<GenerationInfo> list;
    Status status = generations(bunch, &list);
    for (int i = 0; status.ok() && i + 1 < list.size(); ++i) {
        if (list.at(i).lastPoint < cutoff) {
            status = removeGeneration(bunch, list.at(i).id);
            if (status.ok() && removed) {
                removed->append(list.at(i).id);
            }
        }
    }
    return status;
}

Status Repository::deepSync(const QString& bunch, const QString& generation,
                            const QByteArray& password) const
{
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_location.backend(&status);
    if (!backend) {
        return status;
    }
    QByteArray bytes;
    status = backend->read(layout().generationRecord(bunch, generation), 0, -1, &bytes);
    if (!status.ok()) {
        return status;
    }
    GenerationRecord record;
    KeySet keys;
    if (!GenerationRecord::decode(bytes, &record)) {
        return failure(QStringLiteral("The record of generation %1 is damaged.").arg(generation));
    }
    // The password is checked against the storage before the cache is touched.
    if (record.encrypted() && !record.unlock(password, &keys)) {
        return failure(QStringLiteral("Wrong password for generation %1.").arg(generation));
    }
    QString error;
    std::unique_ptr<Cache> cache = openCache(bunch, &error);
    if (!cache) {
        return failure(error);
    }
    cache->forget(generation);
    cache->setSealedKeys(generation, QByteArray());
    std::unique_ptr<Generation> opened;
    return Generation::open(*this, bunch, generation, password, &opened);
}

} // namespace Orv::Repository
