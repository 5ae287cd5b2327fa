#include "orvRepository/CurrentCache.h"

#include "orvRepository/Sqlite.h"

#include <QDir>
#include <QFileInfo>
#include <sqlite3.h>

namespace Orv::Repository {

using namespace Sqlite;

using Kel::Archive::ManifestEntry;

namespace {

const char* const kSchema = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
CREATE TABLE IF NOT EXISTS state(key TEXT PRIMARY KEY, value TEXT) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS last(path BLOB PRIMARY KEY, entry BLOB NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS run(
  path BLOB PRIMARY KEY, entry BLOB NOT NULL, dev INTEGER, ino INTEGER, link BLOB)
  WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS run_inode ON run(dev, ino);
)";

} // namespace

std::unique_ptr<CurrentCache> CurrentCache::open(const QString& path, QString* error)
{
    std::unique_ptr<CurrentCache> cache(new CurrentCache);
    if (!Sqlite::open(path, "version cache", &cache->m_db, error))
        return nullptr;
    if (!cache->exec(kSchema)) {
        *error = QStringLiteral("Cannot prepare the version cache %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(cache->m_db)));
        return nullptr;
    }
    cache->m_previous = cache->prepare("SELECT entry FROM last WHERE path=?1");
    cache->m_put = cache->prepare(
        "INSERT OR REPLACE INTO run(path, entry, dev, ino, link) VALUES(?1, ?2, ?3, ?4, ?5)");
    cache->m_putLast = cache->prepare("INSERT OR REPLACE INTO last(path, entry) VALUES(?1, ?2)");
    cache->m_inode =
        cache->prepare("SELECT entry FROM run WHERE dev=?1 AND ino=?2 AND link IS NULL LIMIT 1");
    return cache;
}

CurrentCache::~CurrentCache()
{
    for (sqlite3_stmt* s : {m_previous, m_put, m_inode, m_putLast}) {
        sqlite3_finalize(s);
    }
    sqlite3_close(m_db);
}

bool CurrentCache::exec(const char* sql)
{
    return Sqlite::exec(m_db, sql);
}

sqlite3_stmt* CurrentCache::prepare(const char* sql)
{
    return Sqlite::prepare(m_db, sql);
}

QByteArray CurrentCache::value(const char* key)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT value FROM state WHERE key=?1");
    sqlite3_bind_text(s, 1, key, -1, SQLITE_STATIC);
    QByteArray value;
    if (sqlite3_step(s) == SQLITE_ROW) {
        value = columnBytes(s, 0);
    }
    sqlite3_finalize(s);
    return value;
}

void CurrentCache::setValue(const char* key, const QByteArray& value)
{
    sqlite3_stmt* s = prepare("INSERT OR REPLACE INTO state(key, value) VALUES(?1, ?2)");
    sqlite3_bind_text(s, 1, key, -1, SQLITE_STATIC);
    bindBytes(s, 2, value);
    sqlite3_step(s);
    sqlite3_finalize(s);
}

void CurrentCache::setSealedKeys(const QByteArray& sealed)
{
    std::lock_guard lock(m_mutex);
    setValue("keys", sealed);
}

void CurrentCache::setManifest(const QString& run)
{
    setValue("manifest", run.toUtf8());
}

void CurrentCache::beginRebuild()
{
    std::lock_guard lock(m_mutex);
    exec("BEGIN; DELETE FROM last;");
}

void CurrentCache::putLast(const ManifestEntry& entry)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_putLast};
    bindBytes(m_putLast, 1, entry.path);
    bindBytes(m_putLast, 2, entry.encode());
    sqlite3_step(m_putLast);
}

void CurrentCache::finishRebuild(const QString& run)
{
    std::lock_guard lock(m_mutex);
    if (run.isEmpty()) {
        exec("DELETE FROM last;");
    }
    setManifest(run);
    exec("COMMIT");
}

bool CurrentCache::previous(const QByteArray& path, ManifestEntry* entry)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_previous};
    bindBytes(m_previous, 1, path);
    return sqlite3_step(m_previous) == SQLITE_ROW &&
           ManifestEntry::decode(columnBytes(m_previous, 0), entry);
}

void CurrentCache::startRun()
{
    std::lock_guard lock(m_mutex);
    exec("DELETE FROM run; BEGIN;");
}

void CurrentCache::put(const ManifestEntry& entry)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_put};
    bindBytes(m_put, 1, entry.path);
    bindBytes(m_put, 2, entry.encode());
    if (entry.node.isFile()) {
        sqlite3_bind_int64(m_put, 3, sqlite3_int64(entry.node.device));
        sqlite3_bind_int64(m_put, 4, sqlite3_int64(entry.node.inode));
    }
    if (!entry.hardLinkTo.isEmpty()) {
        bindBytes(m_put, 5, entry.hardLinkTo);
    }
    sqlite3_step(m_put);
}

void CurrentCache::drop(const QByteArray& path)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("DELETE FROM run WHERE path=?1 OR link=?1");
    bindBytes(s, 1, path);
    sqlite3_step(s);
    sqlite3_finalize(s);
}

void CurrentCache::carryForward(const QByteArray& path)
{
    std::lock_guard lock(m_mutex);
    // Below "/p" lie the paths between "/p/" and "/p0" ('0' follows '/').
    const QByteArray folder = path.endsWith('/') ? path : path + '/';
    sqlite3_stmt* s = prepare("INSERT OR IGNORE INTO run(path, entry) SELECT path, entry FROM last "
                              "WHERE path=?1 OR (path>=?2 AND path<?3)");
    bindBytes(s, 1, path);
    bindBytes(s, 2, folder);
    bindBytes(s, 3, folder.left(folder.size() - 1) + '0');
    sqlite3_step(s);
    sqlite3_finalize(s);
}

bool CurrentCache::findInode(quint64 device, quint64 inode, ManifestEntry* entry)
{
    std::lock_guard lock(m_mutex);
    Reset reset{m_inode};
    sqlite3_bind_int64(m_inode, 1, sqlite3_int64(device));
    sqlite3_bind_int64(m_inode, 2, sqlite3_int64(inode));
    return sqlite3_step(m_inode) == SQLITE_ROW &&
           ManifestEntry::decode(columnBytes(m_inode, 0), entry);
}

bool CurrentCache::forEach(const std::function<bool(const ManifestEntry&)>& callback)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT entry FROM run ORDER BY path");
    bool ok = true;
    ManifestEntry entry;
    while (ok && sqlite3_step(s) == SQLITE_ROW) {
        ok = ManifestEntry::decode(columnBytes(s, 0), &entry) && callback(entry);
    }
    sqlite3_finalize(s);
    return ok;
}

namespace {

// The run's rows that the last entries do not have as they are, and the
// last entries' paths the run has not, in one list by path.
const char* const kChanges =
    "SELECT path, entry FROM run WHERE NOT EXISTS "
    "(SELECT 1 FROM last WHERE last.path=run.path AND last.entry=run.entry) "
    "UNION ALL SELECT path, NULL FROM last WHERE NOT EXISTS "
    "(SELECT 1 FROM run WHERE run.path=last.path)";

} // namespace

quint64 CurrentCache::entries()
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare("SELECT COUNT(*) FROM run");
    const quint64 count = sqlite3_step(s) == SQLITE_ROW ? quint64(sqlite3_column_int64(s, 0)) : 0;
    sqlite3_finalize(s);
    return count;
}

quint64 CurrentCache::changes()
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare((QByteArray("SELECT COUNT(*) FROM (") + kChanges + ")").constData());
    const quint64 count = sqlite3_step(s) == SQLITE_ROW ? quint64(sqlite3_column_int64(s, 0)) : 0;
    sqlite3_finalize(s);
    return count;
}

bool CurrentCache::forEachChange(
    const std::function<bool(const QByteArray&, const ManifestEntry*)>& callback)
{
    std::lock_guard lock(m_mutex);
    sqlite3_stmt* s = prepare((QByteArray(kChanges) + " ORDER BY 1").constData());
    bool ok = true;
    ManifestEntry entry;
    while (ok && sqlite3_step(s) == SQLITE_ROW) {
        if (sqlite3_column_type(s, 1) == SQLITE_NULL) {
            ok = callback(columnBytes(s, 0), nullptr);
        } else {
            ok = ManifestEntry::decode(columnBytes(s, 1), &entry) &&
                 callback(columnBytes(s, 0), &entry);
        }
    }
    sqlite3_finalize(s);
    return ok;
}

void CurrentCache::promote(const QString& run)
{
    std::lock_guard lock(m_mutex);
    exec("DELETE FROM last; INSERT INTO last(path, entry) SELECT path, entry FROM run;"
         "DELETE FROM run;");
    setManifest(run);
    exec("COMMIT");
}

} // namespace Orv::Repository
