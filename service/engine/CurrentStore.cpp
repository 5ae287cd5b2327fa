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

namespace {

// One manifest object read record by record: a whole manifest's entries, or
// a delta's entries and removed paths, in path order.
class ManifestStream
{
public:
    ManifestStream(CurrentStore& store, const QString& run) : m_store(store), m_run(run) {}

    // Fetches the object and reads its header.
    Status open(ManifestHeader* header)
    {
        if (!m_file.open()) {
            return failure(
                QStringLiteral("Cannot make a temporary file: %1").arg(m_file.errorString()));
        }
        const QString name = m_store.layout().manifest(m_store.plan(), m_run);
        const Status status = m_store.fetch(name, &m_file);
        if (!status.ok()) {
            return status;
        }
        m_reader = std::make_unique<Kel::Archive::PieceReader>(&m_file, m_store.keys(), name);
        QByteArray clear;
        if (!m_reader->start(&clear) || !ManifestHeader::decode(clear, header)) {
            return damaged();
        }
        m_delta = !header->base.isEmpty();
        return Status::success();
    }

    // The next record into *entry (*removed for a path a delta drops); false
    // at the end, or with *status set when the object is damaged.
    bool next(ManifestEntry* entry, bool* removed, Status* status)
    {
        while (!m_records || m_records->atEnd()) {
            if (m_reader->atEnd()) {
                return false;
            }
            if (!m_reader->next(&m_piece)) {
                *status = failure(QStringLiteral("The manifest of the run %1 is damaged or "
                                                 "sealed under other keys.")
                                      .arg(m_run));
                return false;
            }
            m_records = std::make_unique<Kel::Archive::ByteReader>(m_piece);
        }
        const quint8 kind = m_delta ? m_records->byte() : quint8(Kel::Archive::DeltaRecord::Entry);
        const QByteArray bytes = m_records->bytes();
        *removed = kind == quint8(Kel::Archive::DeltaRecord::Removed);
        bool ok = m_records->ok() && (*removed || kind == quint8(Kel::Archive::DeltaRecord::Entry));
        if (*removed) {
            entry->path = bytes;
        } else {
            ok = ok && ManifestEntry::decode(bytes, entry);
        }
        if (!ok) {
            *status = damaged();
        }
        return ok;
    }

private:
    Status damaged() const
    {
        return failure(QStringLiteral("The manifest of the run %1 is damaged.").arg(m_run));
    }

    CurrentStore& m_store;
    QString m_run;
    QTemporaryFile m_file;
    std::unique_ptr<Kel::Archive::PieceReader> m_reader;
    QByteArray m_piece;
    std::unique_ptr<Kel::Archive::ByteReader> m_records;
    bool m_delta = false;
};

// A chain longer than this is no chain the archiver writes.
constexpr int kMaxManifestChain = 64;

} // namespace

// A whole manifest is read as it is. A delta is read with the manifests it
// builds on, back to a whole one, merged by path: the newest record of a
// path decides, and a removal hides the path.
Status CurrentStore::readManifest(const QString& run, ManifestHeader* header,
                                  const std::function<bool(const ManifestEntry&)>& callback)
{
    std::vector<std::unique_ptr<ManifestStream>> chain;
    QString next = run;
    while (!next.isEmpty()) {
        if (int(chain.size()) == kMaxManifestChain) {
            return failure(
                QStringLiteral("The manifest of the run %1 builds on too many others.").arg(run));
        }
        chain.push_back(std::make_unique<ManifestStream>(*this, next));
        ManifestHeader read;
        const Status status = chain.back()->open(&read);
        if (!status.ok()) {
            return status;
        }
        if (chain.size() == 1) {
            *header = read;
        }
        next = read.base;
    }

    struct Head
    {
        ManifestEntry entry;
        bool removed = false;
        bool valid = false;
    };
    std::vector<Head> heads(chain.size());
    Status status = Status::success();
    const auto advance = [&](std::size_t i) {
        heads[i].valid = chain[i]->next(&heads[i].entry, &heads[i].removed, &status);
    };
    for (std::size_t i = 0; i < chain.size(); ++i) {
        advance(i);
    }
    for (;;) {
        if (!status.ok()) {
            return status;
        }
        // The smallest path among the heads; the newest stream holding it
        // (the lowest index) decides.
        int decides = -1;
        for (std::size_t i = 0; i < heads.size(); ++i) {
            if (heads[i].valid &&
                (decides < 0 || heads[i].entry.path < heads[std::size_t(decides)].entry.path)) {
                decides = int(i);
            }
        }
        if (decides < 0) {
            return Status::success();
        }
        const Head chosen = heads[std::size_t(decides)];
        for (std::size_t i = std::size_t(decides); i < heads.size(); ++i) {
            if (heads[i].valid && heads[i].entry.path == chosen.entry.path) {
                advance(i);
            }
        }
        if (!chosen.removed && !callback(chosen.entry)) {
            return Status::success();
        }
    }
}

} // namespace Orv::Engine
