#include "orvRepository/Generation.h"

#include "kelBackupFormat/Pack.h"
#include "kelBackupFormat/Tree.h"
#include "kelStreams/Hash.h"
#include "orvCommon/LocalSecret.h"

#include <QHash>
#include <QSet>
#include <algorithm>

namespace Orv::Repository {

using namespace Kel::Archive;

namespace {

// The cached keys carry a digest of the password they were unlocked with, so
// that a changed or wrong password is never let through by the cache.
QByteArray passwordDigest(const GenerationRecord& record, const QByteArray& password)
{
    return Kel::Streams::sha256(record.salt + password);
}

QString lastPart(const QString& name)
{
    return name.mid(name.lastIndexOf('/') + 1);
}

} // namespace

Generation::Generation(const Repository& repository, const QString& bunch)
    : m_repository(repository), m_bunch(bunch)
{
}

Generation::~Generation() = default;

Status Generation::open(const Repository& repository, const QString& bunch, const QString& id,
                        const QByteArray& password, std::unique_ptr<Generation>* generation)
{
    std::unique_ptr<Generation> g(new Generation(repository, bunch));
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = repository.location().backend(&status);
    if (!backend) {
        return status;
    }
    QByteArray bytes;
    status = backend->read(repository.layout().generationRecord(bunch, id), 0, -1, &bytes);
    if (!status.ok()) {
        return status;
    }
    if (!GenerationRecord::decode(bytes, &g->m_record) || g->m_record.id != id) {
        return failure(QStringLiteral("The record of generation %1 is damaged.").arg(id));
    }
    QString error;
    g->m_cache = repository.openCache(bunch, &error);
    if (!g->m_cache) {
        return failure(error);
    }
    status = g->unlock(password);
    if (!status.ok()) {
        return status;
    }
    status = g->sync();
    if (!status.ok()) {
        return status;
    }
    *generation = std::move(g);
    return Status::success();
}

Status Generation::adopt(const Repository& repository, const QString& bunch,
                         const GenerationRecord& record, const KeySet& keys,
                         const QByteArray& password, std::unique_ptr<Generation>* generation)
{
    std::unique_ptr<Generation> g(new Generation(repository, bunch));
    g->m_record = record;
    g->m_keys = keys;
    QString error;
    g->m_cache = repository.openCache(bunch, &error);
    if (!g->m_cache) {
        return failure(error);
    }
    g->m_number = g->m_cache->generation(record.id);
    if (record.encrypted()) {
        const QString sealed = Orv::Common::LocalSecret().encrypt(
            passwordDigest(record, password) + keys.encode(), &error);
        if (!sealed.isEmpty()) {
            g->m_cache->setSealedKeys(record.id, sealed.toLatin1());
        }
    }
    *generation = std::move(g);
    return Status::success();
}

Status Generation::unlock(const QByteArray& password)
{
    m_number = m_cache->generation(m_record.id);
    if (!m_record.encrypted()) {
        m_keys = KeySet();
        return Status::success();
    }
    const QByteArray digest = passwordDigest(m_record, password);
    const QByteArray cached = m_cache->sealedKeys(m_record.id);
    if (!cached.isEmpty()) {
        const auto plain = Orv::Common::LocalSecret().decrypt(QString::fromLatin1(cached));
        if (plain && plain->startsWith(digest) &&
            KeySet::decode(plain->mid(digest.size()), &m_keys)) {
            return Status::success();
        }
    }
    if (password.isEmpty()) {
        return failure(
            QStringLiteral("Generation %1 is encrypted: a password is needed.").arg(m_record.id));
    }
    if (!m_record.unlock(password, &m_keys)) {
        return failure(QStringLiteral("Wrong password for generation %1.").arg(m_record.id));
    }
    QString error;
    const QString sealed = Orv::Common::LocalSecret().encrypt(digest + m_keys.encode(), &error);
    if (!sealed.isEmpty()) {
        m_cache->setSealedKeys(m_record.id, sealed.toLatin1());
    }
    return Status::success();
}

// Reads every restore point of the generation; for those the cache does not
// know yet, loads their indexes into it, one transaction per point.
Status Generation::sync()
{
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        return status;
    }
    const Layout layout = m_repository.layout();
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(layout.points(m_bunch, m_record.id), &objects);
    if (!status.ok()) {
        return status;
    }
    std::sort(objects.begin(), objects.end(),
              [](const auto& a, const auto& b) { return a.name < b.name; });
    const QStringList known = m_cache->points(m_record.id);
    BlobCodec codec(m_keys, false);
    m_points.clear();
    for (const Kel::Cloud::ObjectInfo& object : objects) {
        // Points loaded before come from the cache; only new ones are read.
        const bool loaded = known.contains(lastPart(object.name));
        QByteArray bytes =
            loaded ? m_cache->pointRecord(m_record.id, lastPart(object.name)) : QByteArray();
        if (bytes.isEmpty()) {
            status = backend->read(object.name, 0, -1, &bytes);
        }
        if (!status.ok()) {
            return status;
        }
        PointRecord point;
        if (!PointRecord::decode(bytes, codec, &point) || point.id != lastPart(object.name)) {
            return failure(QStringLiteral("Restore point %1 is damaged or sealed under other keys.")
                               .arg(lastPart(object.name)));
        }
        if (!known.contains(point.id)) {
            m_cache->begin();
            for (int part = 0; part < point.indexes; ++part) {
                QByteArray sealed;
                const QString name = layout.index(m_bunch, m_record.id, point.id, part);
                status = backend->read(name, 0, -1, &sealed);
                QVector<PackRecord> packs;
                if (status.ok() && !decodeIndex(sealed, codec, name.toUtf8(), &packs)) {
                    status = failure(QStringLiteral("The index %1 is damaged.").arg(name));
                }
                if (!status.ok()) {
                    m_cache->rollback();
                    return status;
                }
                for (const PackRecord& pack : packs) {
                    m_cache->putPack(m_number, pack.name);
                    for (const BlobEntry& entry : pack.entries) {
                        m_cache->putBlob(m_number, pack.name, entry);
                    }
                }
            }
            m_cache->commit();
            m_cache->addPoint(m_record.id, point.id, bytes);
        }
        m_points.append(point);
    }
    return Status::success();
}

const PointRecord* Generation::point(const QString& id) const
{
    for (const PointRecord& p : m_points) {
        if (p.id == id) {
            return &p;
        }
    }
    return nullptr;
}

const PointRecord* Generation::pointAt(const QDateTime& time) const
{
    const PointRecord* found = nullptr;
    for (const PointRecord& p : m_points) {
        if (p.start <= time) {
            found = &p;
        }
    }
    return found;
}

Status Generation::removeLeftovers(qint64* removed)
{
    *removed = 0;
    Status status;
    std::unique_ptr<Kel::Cloud::Backend> backend = m_repository.location().backend(&status);
    if (!backend) {
        return status;
    }
    const Layout layout = m_repository.layout();
    QSet<QString> committed;
    for (const PointRecord& p : m_points) {
        committed.insert(p.id);
    }
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(layout.indexes(m_bunch, m_record.id), &objects);
    for (const auto& object : objects) {
        const QString run = lastPart(object.name).section('.', 0, 0);
        if (status.ok() && !committed.contains(run)) {
            status = backend->remove(object.name);
            ++*removed;
        }
    }
    objects.clear();
    if (status.ok()) {
        status = backend->list(layout.packs(m_bunch, m_record.id), &objects);
    }
    for (const auto& object : objects) {
        if (status.ok() && !m_cache->hasPack(m_number, lastPart(object.name).toLatin1())) {
            status = backend->remove(object.name);
            ++*removed;
        }
    }
    return status;
}

Status Generation::check(QStringList* problems)
{
    Reader reader(*this);
    Status status;
    Kel::Cloud::Backend* backend = reader.backend(&status);
    if (!backend) {
        return status;
    }
    const Layout layout = m_repository.layout();
    for (const QByteArray& pack : m_cache->packs(m_number)) {
        const QString name = layout.pack(m_bunch, m_record.id, pack);
        QByteArray bytes;
        status = backend->read(name, 0, -1, &bytes);
        if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
            problems->append(QStringLiteral("%1: missing").arg(name));
            continue;
        }
        if (!status.ok()) {
            return status;
        }
        PackRecord header;
        if (!readPackHeader(bytes, pack, *reader.m_codec, &header)) {
            problems->append(QStringLiteral("%1: damaged header").arg(name));
        }
        for (const BlobEntry& entry : m_cache->blobsIn(m_number, pack)) {
            QByteArray data;
            if (entry.offset + entry.storedLength > quint64(bytes.size()) ||
                !reader.decode(bytes.constData() + entry.offset, entry.storedLength, entry,
                               &data)) {
                problems->append(
                    QStringLiteral("%1: damaged data at offset %2").arg(name).arg(entry.offset));
            }
        }
    }
    return Status::success();
}

Status Generation::checkPresence(QStringList* problems)
{
    Reader reader(*this);
    Status status;
    Kel::Cloud::Backend* backend = reader.backend(&status);
    if (!backend)
        return status;
    const Layout layout = m_repository.layout();
    QList<Kel::Cloud::ObjectInfo> objects;
    status = backend->list(layout.packs(m_bunch, m_record.id), &objects);
    if (!status.ok())
        return status;
    QHash<QString, qint64> sizes;
    for (const Kel::Cloud::ObjectInfo& object : qAsConst(objects))
        sizes.insert(object.name, object.size);
    for (const QByteArray& pack : m_cache->packs(m_number)) {
        const QString name = layout.pack(m_bunch, m_record.id, pack);
        const auto found = sizes.constFind(name);
        if (found == sizes.constEnd()) {
            problems->append(QStringLiteral("%1: missing").arg(name));
            continue;
        }
        quint64 end = 0;
        for (const BlobEntry& entry : m_cache->blobsIn(m_number, pack))
            end = qMax(end, entry.offset + entry.storedLength);
        if (*found >= 0 && quint64(*found) < end)
            problems->append(QStringLiteral("%1: %2 bytes, shorter than its blobs (%3)")
                                 .arg(name)
                                 .arg(*found)
                                 .arg(end));
    }
    return Status::success();
}

Generation::Reader::Reader(Generation& generation)
    : m_generation(generation), m_codec(std::make_unique<BlobCodec>(generation.keys(), false))
{
}

Generation::Reader::~Reader() = default;

Kel::Cloud::Backend* Generation::Reader::backend(Status* status)
{
    if (!m_backend) {
        m_backend = m_generation.repository().location().backend(status);
    }
    return m_backend.get();
}

Status Generation::Reader::packRange(const QByteArray& pack, quint64 offset, quint64 length,
                                     QByteArray* data)
{
    Status status;
    Kel::Cloud::Backend* b = backend(&status);
    if (!b) {
        return status;
    }
    const QString name =
        m_generation.repository().layout().pack(m_generation.bunch(), m_generation.id(), pack);
    status = b->read(name, qint64(offset), qint64(length), data);
    if (status.ok() && quint64(data->size()) != length) {
        return failure(QStringLiteral("The pack %1 is shorter than its index says.").arg(name));
    }
    return status;
}

bool Generation::Reader::decode(const char* stored, std::size_t size, const BlobEntry& entry,
                                QByteArray* data)
{
    return m_codec->decode(stored, size, entry, data);
}

Status Generation::Reader::blob(const QByteArray& id, QByteArray* data)
{
    BlobLocation location;
    if (!m_generation.cache().findBlob(m_generation.number(), id, &location)) {
        return failure(QStringLiteral("The data %1 is not in the index of generation %2.")
                           .arg(QString::fromLatin1(id.toHex().left(16)), m_generation.id()));
    }
    QByteArray stored;
    const Status status =
        packRange(location.pack, location.entry.offset, location.entry.storedLength, &stored);
    if (!status.ok()) {
        return status;
    }
    if (!decode(stored.constData(), std::size_t(stored.size()), location.entry, data)) {
        return failure(
            QStringLiteral("The data %1 in pack %2 is damaged.")
                .arg(QString::fromLatin1(id.toHex().left(16)), QString::fromLatin1(location.pack)));
    }
    return Status::success();
}

Status Generation::Reader::tree(const QByteArray& id, QVector<Node>* nodes)
{
    QByteArray bytes;
    const Status status = blob(id, &bytes);
    if (!status.ok()) {
        return status;
    }
    if (!decodeTree(bytes, nodes)) {
        return failure(QStringLiteral("The folder listing %1 is damaged.")
                           .arg(QString::fromLatin1(id.toHex().left(16))));
    }
    return Status::success();
}

} // namespace Orv::Repository
