#pragma once

#include "kelBackupFormat/Blob.h"

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <memory>
#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

namespace Orv::Repository {

// Where a blob is: its pack and its place in it.
struct BlobLocation
{
    QByteArray pack; // 32 hex digits
    Kel::Archive::BlobEntry entry;
};

// The local cache of one bunch: which restore points of each generation are
// known, and the index of their blobs, in an SQLite file of its own. It is
// only a cache: deleting it loses nothing the storage does not hold. Lookups
// go to disk, so memory does not grow with the repository.
//
// SQLite's C interface rather than Qt's: the blob look-up runs once per chunk
// from several threads, where per-thread connections and variant binding would
// cost more than the look-up itself. Calls are serialised by one mutex.
class Cache
{
public:
    static std::unique_ptr<Cache> open(const QString& path, QString* error);
    ~Cache();
    Cache(const Cache&) = delete;
    Cache& operator=(const Cache&) = delete;

    // A generation's small number in this cache (made on first use).
    qint64 generation(const QString& gen);
    QByteArray sealedKeys(const QString& gen);
    void setSealedKeys(const QString& gen, const QByteArray& sealed);
    // Drops what the cache knows of the generation (its points and blobs).
    void forget(const QString& gen);

    QStringList points(const QString& gen);
    // A restore point known to be loaded, with its record as stored, so that
    // later opens need not read it again.
    void addPoint(const QString& gen, const QString& point, const QByteArray& record);
    QByteArray pointRecord(const QString& gen, const QString& point);

    bool findBlob(qint64 gen, const QByteArray& id, BlobLocation* location);
    void putBlob(qint64 gen, const QByteArray& pack, const Kel::Archive::BlobEntry& entry);
    bool hasPack(qint64 gen, const QByteArray& pack);
    void putPack(qint64 gen, const QByteArray& pack);
    qint64 blobCount(qint64 gen);
    QList<QByteArray> packs(qint64 gen);
    QList<Kel::Archive::BlobEntry> blobsIn(qint64 gen, const QByteArray& pack);

    // Groups writes; a run holds one open until its restore point is stored,
    // so that a run cut off leaves the cache as it was.
    void begin();
    void commit();
    void rollback();

private:
    Cache() = default;
    bool exec(const char* sql);
    sqlite3_stmt* prepare(const char* sql);

    std::mutex m_mutex;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_findBlob = nullptr;
    sqlite3_stmt* m_putBlob = nullptr;
    sqlite3_stmt* m_hasPack = nullptr;
    sqlite3_stmt* m_putPack = nullptr;
};

} // namespace Orv::Repository
