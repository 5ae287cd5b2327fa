#include "service/engine/CurrentStore.h"

#include "kelBackupFormat/Bytes.h"
#include "kelStreams/Hash.h"
#include "orvCommon/LocalSecret.h"

#include <QBuffer>
#include <QTemporaryFile>
#include <algorithm>

namespace Orv::Engine {

using Kel::Archive::GenerationRecord;
using Kel::Archive::ManifestEntry;
using Kel::Archive::ManifestHeader;
using Orv::Repository::failure;
using Orv::Repository::Status;

CurrentStore::CurrentStore(const Orv::Repository::Repository& repository, const QString& plan)
    : m_repository(repository), m_plan(plan), m_layout(repository.location().prefix)
{
}

Status CurrentStore::connect()
{
    Status status;
    m_backend = m_repository.location().backend(&status);
    if (!m_backend && status.ok()) {
        return failure(QStringLiteral("The storage cannot be used."));
    }
    return status;
}

namespace {

// The cached keys carry a digest of the password they were unlocked with, so
// that a changed or wrong password is never let through by the cache.
QByteArray passwordDigest(const GenerationRecord& record, const QByteArray& password)
{
    return Kel::Streams::sha256(record.salt + password);
}

bool cachedKeys(Orv::Repository::CurrentCache* cache, const QByteArray& digest,
                Kel::Archive::KeySet* keys)
{
    const QByteArray sealed = cache ? cache->sealedKeys() : QByteArray();
    if (sealed.isEmpty()) {
        return false;
    }
    const auto plain = Orv::Common::LocalSecret().decrypt(QString::fromLatin1(sealed));
    return plain && plain->startsWith(digest) &&
           Kel::Archive::KeySet::decode(plain->mid(digest.size()), keys);
}

void remember(Orv::Repository::CurrentCache* cache, const QByteArray& digest,
              const Kel::Archive::KeySet& keys)
{
    const QString sealed =
        cache ? Orv::Common::LocalSecret().encrypt(digest + keys.encode()) : QString();
    if (!sealed.isEmpty()) {
        cache->setSealedKeys(sealed.toLatin1());
    }
}

} // namespace

Status CurrentStore::openKeys(const KeyRequest& request, Orv::Repository::CurrentCache* cache)
{
    const QString name = m_layout.keys(m_plan);
    QByteArray bytes;
    Status status = m_backend->read(name, 0, -1, &bytes);
    if (status.error == Kel::Cloud::Operation::Error::ObjectNotFound) {
        if (!request.create) {
            return failure(
                QStringLiteral("The storage holds no backup of the plan %1.").arg(m_plan));
        }
        // The record's id binds the sealed keys to this plan.
        const GenerationRecord record =
            GenerationRecord::create(m_plan, m_plan, request.algorithm, request.password,
                                     request.hint, request.compression, &m_keys);
        status = m_backend->write(name, record.encode());
        if (status.ok() && record.encrypted()) {
            remember(cache, passwordDigest(record, request.password), m_keys);
        }
        return status.ok() ? markPlan() : status;
    }
    if (!status.ok()) {
        return status;
    }
    GenerationRecord record;
    if (!GenerationRecord::decode(bytes, &record) || record.id != m_plan) {
        return failure(QStringLiteral("The keys of the plan %1 are damaged.").arg(m_plan));
    }
    if (record.encrypted()) {
        const QByteArray digest = passwordDigest(record, request.password);
        if (!cachedKeys(cache, digest, &m_keys)) {
            if (!record.unlock(request.password, &m_keys)) {
                return failure(QStringLiteral("Wrong password for the plan %1.").arg(m_plan));
            }
            remember(cache, digest, m_keys);
        }
    } else {
        m_keys = Kel::Archive::KeySet();
    }
    // A run of a plan stored before plans were marked marks it.
    return request.create ? markPlan() : Status::success();
}

Status CurrentStore::markPlan()
{
    const QString marker = m_layout.planMarker(m_plan);
    Kel::Cloud::ObjectInfo info;
    const Status found = m_backend->stat(marker, &info);
    if (found.error != Kel::Cloud::Operation::Error::ObjectNotFound) {
        return found;
    }
    return m_backend->write(marker, QByteArray());
}

Status CurrentStore::runs(QStringList* runs)
{
    const QString prefix = m_layout.manifests(m_plan);
    QList<Kel::Cloud::ObjectInfo> objects;
    const Status status = m_backend->list(prefix, &objects);
    if (!status.ok()) {
        return status;
    }
    runs->clear();
    for (const auto& object : std::as_const(objects)) {
        const QString run = object.name.mid(prefix.size());
        if (Kel::Archive::CurrentLayout::runTime(run).isValid()) {
            runs->append(run);
        }
    }
    std::sort(runs->begin(), runs->end());
    return Status::success();
}

Status CurrentStore::fetch(const QString& name, QIODevice* sink)
{
    const Status status = m_backend->read(name, 0, -1, sink);
    sink->seek(0);
    return status;
}

Status CurrentStore::readManifest(const QString& run, ManifestHeader* header,
                                  const std::function<bool(const ManifestEntry&)>& callback)
{
    QTemporaryFile file;
    if (!file.open()) {
        return failure(QStringLiteral("Cannot make a temporary file: %1").arg(file.errorString()));
    }
    const QString name = m_layout.manifest(m_plan, run);
    Status status = fetch(name, &file);
    if (!status.ok()) {
        return status;
    }
    Kel::Archive::PieceReader reader(&file, m_keys, name);
    QByteArray clear;
    if (!reader.start(&clear) || !ManifestHeader::decode(clear, header)) {
        return failure(QStringLiteral("The manifest of the run %1 is damaged.").arg(run));
    }
    QByteArray piece;
    while (!reader.atEnd()) {
        if (!reader.next(&piece)) {
            return failure(QStringLiteral("The manifest of the run %1 is damaged or sealed under "
                                          "other keys.")
                               .arg(run));
        }
        Kel::Archive::ByteReader r(piece);
        while (!r.atEnd()) {
            ManifestEntry entry;
            if (!ManifestEntry::decode(r.bytes(), &entry)) {
                return failure(QStringLiteral("The manifest of the run %1 is damaged.").arg(run));
            }
            if (!callback(entry)) {
                return Status::success();
            }
        }
    }
    return Status::success();
}

} // namespace Orv::Engine
