#include "orvRepository/Cache.h"

#include "orvRepository/Sqlite.h"

#include <QDir>
#include <QFileInfo>
#include <sqlite3.h>

namespace Orv::Repository {

using namespace Sqlite;

namespace {

// A cache of another layout is dropped and made again: the storage holds
// everything it held.
constexpr int kCacheVersion = 2;

const char* const kDrop = R"(
DROP TABLE IF EXISTS generations;
DROP TABLE IF EXISTS points;
DROP TABLE IF EXISTS packs;
DROP TABLE IF EXISTS blobs;
)";

const char* const kSchema = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
CREATE TABLE IF NOT EXISTS generations(
  num INTEGER PRIMARY KEY, name TEXT UNIQUE NOT NULL, keys BLOB);
CREATE TABLE IF NOT EXISTS points(
  gen INTEGER NOT NULL, name TEXT NOT NULL, record BLOB NOT NULL,
  PRIMARY KEY(gen, name)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS packs(
  gen INTEGER NOT NULL, name BLOB NOT NULL, PRIMARY KEY(gen, name)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS blobs(
  gen INTEGER NOT NULL, id BLOB NOT NULL, pack BLOB NOT NULL, offset INTEGER NOT NULL,
  stored INTEGER NOT NULL, raw INTEGER NOT NULL, flags INTEGER NOT NULL,
  PRIMARY KEY(gen, id)) WITHOUT ROWID;
)";

} // namespace

std::unique_ptr<Cache> Cache::open(const QString& path, QString* error)
{
    std::unique_ptr<Cache> cache(new Cache);
    if (!Sqlite::open(path, "repository cache", &cache->m_db, error))
        return nullptr;
    sqlite3_stmt* version = cache->prepare("PRAGMA user_version");
    const int found = sqlite3_step(version) == SQLITE_ROW ? sqlite3_column_int(version, 0) : 0;
    sqlite3_finalize(version);
    if (found != kCacheVersion &&
        (!cache->exec(kDrop) ||
         !cache->exec(QByteArray("PRAGMA user_version = " + QByteArray::number(kCacheVersion))
                          .constData()))) {
        *error = QStringLiteral("Cannot renew the repository cache %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(cache->m_db)));
        return nullptr;
    }
    if (!cache->exec(kSchema)) {
        *error = QStringLiteral("Cannot prepare the repository cache %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(cache->m_db)));
        return nullptr;
    }
    cache->m_findBlob = cache->prepare(
        "SELECT pack, offset, stored, raw, flags FROM blobs WHERE gen = ?1 AND id = ?2");
    cache->m_putBlob = cache->prepare("INSERT OR REPLACE INTO blobs VALUES(?1,?2,?3,?4,?5,?6,?7)");
    cache->m_hasPack = cache->prepare("SELECT 1 FROM packs WHERE gen = ?1 AND name = ?2");
    cache->m_putPack = cache->prepare("INSERT OR IGNORE INTO packs VALUES(?1, ?2)");
    return cache;
}

Cache::~Cache()
{
    for (sqlite3_stmt* s : {m_findBlob, m_putBlob, m_hasPack, m_putPack}) {
        sqlite3_finalize(s);
    }
    sqlite3_close(m_db);
}

bool Cache::exec(const char* sql)
{
    return Sqlite::exec(m_db, sql);
}

sqlite3_stmt* Cache::prepare(const char* sql)
{
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(m_db, sql, -1, &statement, nullptr);
    return statement;
}

qint64 Cache::generation(const QString& gen)
{
    std::lock_guard lock(m_mutex);
    // Looked up before anything is written, so that readers of a generation
    // never wait for a run that holds the cache's write lock.
    for (const char* sql : {"SELECT num FROM generations WHERE name = ?1",
                            "INSERT INTO generations(name) VALUES(?1) RETURNING num"}) {
        sqlite3_stmt* s = prepare(sql);
        bindText(s, 1, gen);
        const qint64 num = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
        sqlite3_finalize(s);
        if (num >= 0) {
            return num;
        }
    }
    return -1;
}

QByteArray Cache::sealedKeys(const QString& gen)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT keys FROM generations WHERE name = ?1");
    bindText(s, 1, gen);
    const QByteArray keys = sqlite3_step(s) == SQLITE_ROW ? columnBytes(s, 0) : QByteArray();
    sqlite3_finalize(s);
    return keys;
}

void Cache::setSealedKeys(const QString& gen, const QByteArray& sealed)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("UPDATE generations SET keys = ?2 WHERE name = ?1");
    bindText(s, 1, gen);
    bindBytes(s, 2, sealed);
    sqlite3_step(s);
    sqlite3_finalize(s);
}

void Cache::forget(const QString& gen)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT num FROM generations WHERE name = ?1");
    bindText(s, 1, gen);
    const qint64 num = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : -1;
    sqlite3_finalize(s);
    if (num < 0) {
        return;
    }
    for (const char* sql : {"DELETE FROM points WHERE gen = ?1", "DELETE FROM packs WHERE gen = ?1",
                            "DELETE FROM blobs WHERE gen = ?1"}) {
        s = prepare(sql);
        sqlite3_bind_int64(s, 1, num);
        sqlite3_step(s);
        sqlite3_finalize(s);
    }
}

QStringList Cache::points(const QString& gen)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT p.name FROM points p JOIN generations g ON p.gen = g.num "
                              "WHERE g.name = ?1 ORDER BY p.name");
    bindText(s, 1, gen);
    QStringList names;
    while (sqlite3_step(s) == SQLITE_ROW) {
        names.append(QString::fromUtf8(reinterpret_cast<const char*>(sqlite3_column_text(s, 0))));
    }
    sqlite3_finalize(s);
    return names;
}

void Cache::addPoint(const QString& gen, const QString& point, const QByteArray& record)
{
    const qint64 num = generation(gen);
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("INSERT OR REPLACE INTO points VALUES(?1, ?2, ?3)");
    sqlite3_bind_int64(s, 1, num);
    bindText(s, 2, point);
    bindBytes(s, 3, record);
    sqlite3_step(s);
    sqlite3_finalize(s);
}

QByteArray Cache::pointRecord(const QString& gen, const QString& point)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT p.record FROM points p JOIN generations g ON p.gen = g.num "
                              "WHERE g.name = ?1 AND p.name = ?2");
    bindText(s, 1, gen);
    bindText(s, 2, point);
    const QByteArray record = sqlite3_step(s) == SQLITE_ROW ? columnBytes(s, 0) : QByteArray();
    sqlite3_finalize(s);
    return record;
}

bool Cache::findBlob(qint64 gen, const QByteArray& id, BlobLocation* location)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_findBlob};
    sqlite3_bind_int64(m_findBlob, 1, gen);
    sqlite3_bind_blob(m_findBlob, 2, id.constData(), id.size(), SQLITE_STATIC);
    if (sqlite3_step(m_findBlob) != SQLITE_ROW) {
        return false;
    }
    if (location) {
        location->pack = columnBytes(m_findBlob, 0);
        location->entry.id = id;
        location->entry.offset = quint64(sqlite3_column_int64(m_findBlob, 1));
        location->entry.storedLength = quint32(sqlite3_column_int64(m_findBlob, 2));
        location->entry.rawLength = quint32(sqlite3_column_int64(m_findBlob, 3));
        const int flags = sqlite3_column_int(m_findBlob, 4);
        location->entry.type = Kel::Archive::BlobType(flags & 0x7f);
        location->entry.compressed = flags & 0x80;
    }
    return true;
}

void Cache::putBlob(qint64 gen, const QByteArray& pack, const Kel::Archive::BlobEntry& entry)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_putBlob};
    sqlite3_bind_int64(m_putBlob, 1, gen);
    sqlite3_bind_blob(m_putBlob, 2, entry.id.constData(), entry.id.size(), SQLITE_STATIC);
    sqlite3_bind_blob(m_putBlob, 3, pack.constData(), pack.size(), SQLITE_STATIC);
    sqlite3_bind_int64(m_putBlob, 4, qint64(entry.offset));
    sqlite3_bind_int64(m_putBlob, 5, entry.storedLength);
    sqlite3_bind_int64(m_putBlob, 6, entry.rawLength);
    sqlite3_bind_int(m_putBlob, 7, int(entry.type) | (entry.compressed ? 0x80 : 0));
    sqlite3_step(m_putBlob);
}

bool Cache::hasPack(qint64 gen, const QByteArray& pack)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_hasPack};
    sqlite3_bind_int64(m_hasPack, 1, gen);
    sqlite3_bind_blob(m_hasPack, 2, pack.constData(), pack.size(), SQLITE_STATIC);
    return sqlite3_step(m_hasPack) == SQLITE_ROW;
}

void Cache::putPack(qint64 gen, const QByteArray& pack)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_putPack};
    sqlite3_bind_int64(m_putPack, 1, gen);
    sqlite3_bind_blob(m_putPack, 2, pack.constData(), pack.size(), SQLITE_STATIC);
    sqlite3_step(m_putPack);
}

qint64 Cache::blobCount(qint64 gen)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT count(*) FROM blobs WHERE gen = ?1");
    sqlite3_bind_int64(s, 1, gen);
    const qint64 count = sqlite3_step(s) == SQLITE_ROW ? sqlite3_column_int64(s, 0) : 0;
    sqlite3_finalize(s);
    return count;
}

QList<QByteArray> Cache::packs(qint64 gen)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT name FROM packs WHERE gen = ?1 ORDER BY name");
    sqlite3_bind_int64(s, 1, gen);
    QList<QByteArray> names;
    while (sqlite3_step(s) == SQLITE_ROW) {
        names.append(columnBytes(s, 0));
    }
    sqlite3_finalize(s);
    return names;
}

QList<Kel::Archive::BlobEntry> Cache::blobsIn(qint64 gen, const QByteArray& pack)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT id, offset, stored, raw, flags FROM blobs "
                              "WHERE gen = ?1 AND pack = ?2 ORDER BY offset");
    sqlite3_bind_int64(s, 1, gen);
    bindBytes(s, 2, pack);
    QList<Kel::Archive::BlobEntry> entries;
    while (sqlite3_step(s) == SQLITE_ROW) {
        Kel::Archive::BlobEntry e;
        e.id = columnBytes(s, 0);
        e.offset = quint64(sqlite3_column_int64(s, 1));
        e.storedLength = quint32(sqlite3_column_int64(s, 2));
        e.rawLength = quint32(sqlite3_column_int64(s, 3));
        const int flags = sqlite3_column_int(s, 4);
        e.type = Kel::Archive::BlobType(flags & 0x7f);
        e.compressed = flags & 0x80;
        entries.append(e);
    }
    sqlite3_finalize(s);
    return entries;
}

void Cache::begin()
{
    std::lock_guard lock(m_mutex);
    exec("BEGIN IMMEDIATE");
}

void Cache::commit()
{
    std::lock_guard lock(m_mutex);
    exec("COMMIT");
}

void Cache::rollback()
{
    std::lock_guard lock(m_mutex);
    exec("ROLLBACK");
}

} // namespace Orv::Repository
