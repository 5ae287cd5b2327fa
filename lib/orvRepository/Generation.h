#pragma once

#include "kelBackupFormat/Node.h"
#include "kelBackupFormat/Records.h"
#include "orvRepository/Repository.h"

#include <QVector>

namespace Orv::Repository {

// One generation opened for use: its keys unlocked and the local cache
// brought up to date with the restore points the storage holds.
class Generation
{
public:
    // Unlocks the keys (from the cache when the password matches the one
    // they were cached with, else by the password) and synchronises the cache.
    // A wrong password fails with a message saying so and changes nothing.
    static Status open(const Repository& repository, const QString& bunch, const QString& id,
                       const QByteArray& password, std::unique_ptr<Generation>* generation);
    // A generation made by the caller (a run's first), with its keys.
    static Status adopt(const Repository& repository, const QString& bunch,
                        const Kel::Archive::GenerationRecord& record,
                        const Kel::Archive::KeySet& keys, const QByteArray& password,
                        std::unique_ptr<Generation>* generation);
    ~Generation();

    const Repository& repository() const { return m_repository; }
    const QString& bunch() const { return m_bunch; }
    const QString& id() const { return m_record.id; }
    const Kel::Archive::GenerationRecord& record() const { return m_record; }
    const Kel::Archive::KeySet& keys() const { return m_keys; }
    Cache& cache() { return *m_cache; }
    qint64 number() const { return m_number; }
    // The committed restore points, oldest first, with their sealed parts.
    const QList<Kel::Archive::PointRecord>& points() const { return m_points; }
    const Kel::Archive::PointRecord* point(const QString& id) const;
    // The newest point not later than the time; null when there is none.
    const Kel::Archive::PointRecord* pointAt(const QDateTime& time) const;

    // Removes what runs cut off left behind: packs that no index lists,
    // indexes that no restore point names. Only a run of this bunch may call
    // it, before it writes.
    Status removeLeftovers(qint64* removed);

    // Reads every pack the cache lists and verifies each blob against the
    // index: present, intact, the right id. Problems name the object.
    Status check(QStringList* problems);
    // The cheap check after each backup: one listing of the storage shows
    // that every pack the indexes name is there and no shorter than the
    // blobs it holds. Problems name the object.
    Status checkPresence(QStringList* problems);

    // Reads blobs and trees of the generation, for one thread.
    class Reader
    {
    public:
        explicit Reader(Generation& generation);
        ~Reader();

        Status blob(const QByteArray& id, QByteArray* data);
        Status tree(const QByteArray& id, QVector<Kel::Archive::Node>* nodes);
        // Several blobs of one pack: one ranged read covering them all.
        Status packRange(const QByteArray& pack, quint64 offset, quint64 length, QByteArray* data);
        bool decode(const char* stored, std::size_t size, const Kel::Archive::BlobEntry& entry,
                    QByteArray* data);
        Kel::Cloud::Backend* backend(Status* status);

    private:
        friend class Generation;
        Generation& m_generation;
        std::unique_ptr<Kel::Cloud::Backend> m_backend;
        std::unique_ptr<Kel::Archive::BlobCodec> m_codec;
    };

private:
    Generation(const Repository& repository, const QString& bunch);
    Status unlock(const QByteArray& password);
    Status sync();

    const Repository& m_repository;
    QString m_bunch;
    Kel::Archive::GenerationRecord m_record;
    Kel::Archive::KeySet m_keys;
    std::unique_ptr<Cache> m_cache;
    qint64 m_number = -1;
    QList<Kel::Archive::PointRecord> m_points;
};

} // namespace Orv::Repository
