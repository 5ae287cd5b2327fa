#pragma once

#include "kelBackupFormat/CurrentFormat.h"

#include <QString>
#include <functional>
#include <memory>
#include <mutex>

struct sqlite3;
struct sqlite3_stmt;

namespace Orv::Repository {

// The local cache of one plan of the current format: the entries of the last
// manifest (what the unchanged-file test compares with) and the entries of
// the run under way, in an SQLite file of its own. The run's entries become
// the last manifest's only once its manifest is stored, so a run cut off
// leaves the cache as it was. Only a cache: it is rebuilt from the newest
// manifest whenever it does not name that manifest.
class CurrentCache
{
public:
    static std::unique_ptr<CurrentCache> open(const QString& path, QString* error);
    ~CurrentCache();
    CurrentCache(const CurrentCache&) = delete;
    CurrentCache& operator=(const CurrentCache&) = delete;

    // The run whose manifest the last entries are; empty when none.
    QString manifest() { return QString::fromUtf8(value("manifest")); }
    // The plan's keys as this machine keeps them (sealed by its local secret).
    QByteArray sealedKeys() { return value("keys"); }
    void setSealedKeys(const QByteArray& sealed);
    // Replaces the last entries: begin, put each, finish with the run they
    // are of (empty when they are of no run).
    void beginRebuild();
    void putLast(const Kel::Archive::ManifestEntry& entry);
    void finishRebuild(const QString& run);
    bool previous(const QByteArray& path, Kel::Archive::ManifestEntry* entry);

    // The run under way.
    void startRun();
    void put(const Kel::Archive::ManifestEntry& entry);
    // Drops the entry of the path and the hard links to it.
    void drop(const QByteArray& path);
    // Puts the last run's entries of the path and of everything below it into
    // this run where the run has none: what could not be read this time
    // stays as it was last backed up rather than looking deleted.
    void carryForward(const QByteArray& path);
    // A file of this run with the inode that is no hard link itself.
    bool findInode(quint64 device, quint64 inode, Kel::Archive::ManifestEntry* entry);
    // The run's entries in byte order of their paths, until the callback
    // says false.
    bool forEach(const std::function<bool(const Kel::Archive::ManifestEntry&)>& callback);
    // How many entries the run has, and how many differ from the last
    // entries (new, changed, or gone).
    quint64 entries();
    quint64 changes();
    // The run's differences from the last entries in byte order of their
    // paths: each new or changed entry, and each path gone (entry null),
    // until the callback says false.
    bool forEachChange(
        const std::function<bool(const QByteArray&, const Kel::Archive::ManifestEntry*)>& callback);
    // The run's manifest is stored: its entries become the last ones.
    void promote(const QString& run);

private:
    CurrentCache() = default;
    bool exec(const char* sql);
    void setManifest(const QString& run);
    QByteArray value(const char* key);
    void setValue(const char* key, const QByteArray& value);
    sqlite3_stmt* prepare(const char* sql);

    std::mutex m_mutex;
    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_previous = nullptr;
    sqlite3_stmt* m_put = nullptr;
    sqlite3_stmt* m_inode = nullptr;
    sqlite3_stmt* m_putLast = nullptr;
};

} // namespace Orv::Repository
