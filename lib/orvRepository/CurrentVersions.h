#pragma once

#include "kelBackupFormat/CurrentFormat.h"

#include <QSet>
#include <QString>
#include <QStringList>
#include <QVector>
#include <functional>
#include <memory>

struct sqlite3;
struct sqlite3_stmt;

namespace Orv::Repository {

// One stored version of a file, as the retention of file versions weighs it.
struct StoredVersion
{
    QString name; // the object's name below the plan's folder
    QString run;  // the run that stored it
    qint64 mtimeNs = 0;
    QString base; // the run of the full version it builds on, if any
};

// What the retention of file versions needs to know of one plan of the
// current format, in an SQLite file of its own so that memory does not grow
// with the history: every version its manifests name, when each file was
// last seen at its source, which versions retention removed and whether
// their deletion finished, and the runs started here that may have left
// objects without a manifest. Only a cache: whatever it lacks is read again
// from the manifests and the retention records in the storage.
class CurrentVersions
{
public:
    static std::unique_ptr<CurrentVersions> open(const QString& path, QString* error);
    ~CurrentVersions();
    CurrentVersions(const CurrentVersions&) = delete;
    CurrentVersions& operator=(const CurrentVersions&) = delete;

    // Everything between begin and commit lands at once, or not at all.
    void begin();
    void commit();

    // Runs started here and not known to be over.
    QStringList pending();
    void addPending(const QString& run);
    void removePending(const QString& run);

    // The manifests whose entries are in.
    QSet<QString> manifests();
    // One entry of a manifest; name says where its version's object is.
    void addEntry(const QString& run, const Kel::Archive::ManifestEntry& entry,
                  const std::function<QString()>& name);
    void addManifest(const QString& run);

    // Retention records: the run that wrote one, and whether every version
    // it names is deleted.
    QSet<QString> records();
    QStringList unfinishedRecords();
    void addRecord(const QString& run);
    void finishRecord(const QString& run);
    // The version was removed by the record's retention.
    void markRemoved(const QString& record, const QString& name);
    bool forEachRemoved(const QString& record, const std::function<bool(const QString&)>& callback);

    // Every file with its versions not removed, oldest first, and the last
    // run whose manifest has it, in path order, until the callback says
    // false.
    bool forEachFile(
        const std::function<bool(const QByteArray& path, const QVector<StoredVersion>& versions,
                                 const QString& lastSeen)>& callback);

private:
    CurrentVersions() = default;
    bool exec(const char* sql);
    sqlite3_stmt* prepare(const char* sql);
    QStringList texts(const char* sql);

    sqlite3* m_db = nullptr;
    sqlite3_stmt* m_addVersion = nullptr;
    sqlite3_stmt* m_seen = nullptr;
    sqlite3_stmt* m_markRemoved = nullptr;
};

} // namespace Orv::Repository
