#include "orvRepository/CurrentVersions.h"

#include "orvRepository/Sqlite.h"

#include <sqlite3.h>

namespace Orv::Repository {

using namespace Sqlite;

using Kel::Archive::ManifestEntry;

namespace {

const char* const kSchema = R"(
PRAGMA journal_mode=WAL;
PRAGMA synchronous=NORMAL;
CREATE TABLE IF NOT EXISTS pending(run TEXT PRIMARY KEY) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS manifests(run TEXT PRIMARY KEY) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS versions(
  name TEXT PRIMARY KEY, path BLOB NOT NULL, run TEXT NOT NULL, mtime INTEGER, base TEXT,
  removed TEXT) WITHOUT ROWID;
CREATE INDEX IF NOT EXISTS versions_path ON versions(path, run);
CREATE INDEX IF NOT EXISTS versions_removed ON versions(removed);
CREATE TABLE IF NOT EXISTS seen(path BLOB PRIMARY KEY, run TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS records(run TEXT PRIMARY KEY, done INTEGER NOT NULL) WITHOUT ROWID;
)";

QString columnText(sqlite3_stmt* s, int column)
{
    return QString::fromUtf8(static_cast<const char*>(sqlite3_column_blob(s, column)),
                             sqlite3_column_bytes(s, column));
}

} // namespace

std::unique_ptr<CurrentVersions> CurrentVersions::open(const QString& path, QString* error)
{
    std::unique_ptr<CurrentVersions> index(new CurrentVersions);
    if (!Sqlite::open(path, "version index", &index->m_db, error)) {
        return nullptr;
    }
    if (!index->exec(kSchema)) {
        *error = QStringLiteral("Cannot prepare the version index %1: %2")
                     .arg(path, QString::fromUtf8(sqlite3_errmsg(index->m_db)));
        return nullptr;
    }
    index->m_addVersion = index->prepare(
        "INSERT OR IGNORE INTO versions(name, path, run, mtime, base) VALUES(?1, ?2, ?3, ?4, ?5)");
    // Manifests may be indexed in any order: a file's last sighting is the
    // newest run that has it.
    index->m_seen = index->prepare("INSERT INTO seen(path, run) VALUES(?1, ?2) ON CONFLICT(path) "
                                   "DO UPDATE SET run=excluded.run WHERE excluded.run > run");
    index->m_markRemoved = index->prepare("UPDATE versions SET removed=?1 WHERE name=?2");
    return index;
}

CurrentVersions::~CurrentVersions()
{
    for (sqlite3_stmt* s : {m_addVersion, m_seen, m_markRemoved}) {
        sqlite3_finalize(s);
    }
    sqlite3_close(m_db);
}

bool CurrentVersions::exec(const char* sql)
{
    return Sqlite::exec(m_db, sql);
}

sqlite3_stmt* CurrentVersions::prepare(const char* sql)
{
    return Sqlite::prepare(m_db, sql);
}

QStringList CurrentVersions::texts(const char* sql)
{
    sqlite3_stmt* s = prepare(sql);
    QStringList out;
    while (sqlite3_step(s) == SQLITE_ROW) {
        out.append(columnText(s, 0));
    }
    sqlite3_finalize(s);
    return out;
}

void CurrentVersions::begin()
{
    exec("BEGIN");
}

void CurrentVersions::commit()
{
    exec("COMMIT");
}

QStringList CurrentVersions::pending()
{
    return texts("SELECT run FROM pending ORDER BY run");
}

void CurrentVersions::addPending(const QString& run)
{
    runWithText(m_db, "INSERT OR IGNORE INTO pending(run) VALUES(?1)", run);
}

void CurrentVersions::removePending(const QString& run)
{
    runWithText(m_db, "DELETE FROM pending WHERE run=?1", run);
}

QSet<QString> CurrentVersions::manifests()
{
    const QStringList runs = texts("SELECT run FROM manifests");
    return QSet<QString>(runs.begin(), runs.end());
}

void CurrentVersions::addEntry(const QString& run, const ManifestEntry& entry,
                               const std::function<QString()>& name)
{
    if (!entry.node.isFile()) {
        return;
    }
    {
        Reset reset{m_seen};
        bindBytes(m_seen, 1, entry.path);
        bindText(m_seen, 2, run);
        sqlite3_step(m_seen);
    }
    // A version is indexed from the manifest of the run that stored it:
    // later ones take it over unchanged. A hard link's version is its
    // owner's, indexed under the owner.
    if (!entry.hardLinkTo.isEmpty() || entry.version != run) {
        return;
    }
    Reset reset{m_addVersion};
    bindText(m_addVersion, 1, name());
    bindBytes(m_addVersion, 2, entry.path);
    bindText(m_addVersion, 3, entry.version);
    sqlite3_bind_int64(m_addVersion, 4, entry.node.mtimeNs);
    if (!entry.base.isEmpty()) {
        bindText(m_addVersion, 5, entry.base);
    }
    sqlite3_step(m_addVersion);
}

void CurrentVersions::addManifest(const QString& run)
{
    runWithText(m_db, "INSERT OR IGNORE INTO manifests(run) VALUES(?1)", run);
}

QSet<QString> CurrentVersions::records()
{
    const QStringList runs = texts("SELECT run FROM records");
    return QSet<QString>(runs.begin(), runs.end());
}

QStringList CurrentVersions::unfinishedRecords()
{
    return texts("SELECT run FROM records WHERE done=0 ORDER BY run");
}

void CurrentVersions::addRecord(const QString& run)
{
    runWithText(m_db, "INSERT OR IGNORE INTO records(run, done) VALUES(?1, 0)", run);
}

void CurrentVersions::finishRecord(const QString& run)
{
    runWithText(m_db, "UPDATE records SET done=1 WHERE run=?1", run);
}

void CurrentVersions::markRemoved(const QString& record, const QString& name)
{
    Reset reset{m_markRemoved};
    bindText(m_markRemoved, 1, record);
    bindText(m_markRemoved, 2, name);
    sqlite3_step(m_markRemoved);
}

bool CurrentVersions::forEachRemoved(const QString& record,
                                     const std::function<bool(const QString&)>& callback)
{
    sqlite3_stmt* s = prepare("SELECT name FROM versions WHERE removed=?1");
    bindText(s, 1, record);
    bool ok = true;
    while (ok && sqlite3_step(s) == SQLITE_ROW) {
        ok = callback(columnText(s, 0));
    }
    sqlite3_finalize(s);
    return ok;
}

bool CurrentVersions::forEachFile(
    const std::function<bool(const QByteArray&, const QVector<StoredVersion>&, const QString&)>&
        callback)
{
    sqlite3_stmt* s =
        prepare("SELECT v.path, v.name, v.run, v.mtime, v.base, s.run FROM versions v "
                "LEFT JOIN seen s ON s.path=v.path WHERE v.removed IS NULL ORDER BY v.path, v.run");
    QByteArray path;
    QString lastSeen;
    QVector<StoredVersion> versions;
    bool ok = true;
    while (ok && sqlite3_step(s) == SQLITE_ROW) {
        const QByteArray rowPath = columnBytes(s, 0);
        if (rowPath != path && !versions.isEmpty()) {
            ok = callback(path, versions, lastSeen);
            versions.clear();
        }
        path = rowPath;
        lastSeen = columnText(s, 5);
        versions.append(
            {columnText(s, 1), columnText(s, 2), sqlite3_column_int64(s, 3), columnText(s, 4)});
    }
    sqlite3_finalize(s);
    return ok && (versions.isEmpty() || callback(path, versions, lastSeen));
}

} // namespace Orv::Repository
