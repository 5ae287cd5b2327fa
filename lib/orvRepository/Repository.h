#pragma once

#include "kelBackupFormat/Records.h"
#include "kelCloud/Backend.h"
#include "orvRepository/Cache.h"

#include <QDateTime>
#include <QList>
#include <QString>
#include <functional>
#include <memory>

namespace Orv::Repository {

using Kel::Cloud::Status;

// Makes a fresh connection to the account's storage; the engine takes one per
// thread that talks to the storage.
using BackendFactory =
    std::function<std::unique_ptr<Kel::Cloud::Backend>(Kel::Cloud::Status* status)>;

// One storage account seen as a repository of the new format.
struct Location
{
    BackendFactory backend;
    QString prefix;      // the account's backup prefix
    QString cacheFolder; // local folder of this account's caches
};

struct BunchInfo
{
    QString id;
    QString name;
};

struct PointInfo
{
    QString id;
    QString generation;
    Kel::Archive::BackupType type = Kel::Archive::BackupType::Full;
    QDateTime start;
    QDateTime end;
    Kel::Archive::PointStatus status = Kel::Archive::PointStatus::Success;
    int warnings = 0;
    int errors = 0;
    bool needsDeepSync = false;
    bool encrypted = false;
};

struct GenerationInfo
{
    QString id;
    QDateTime firstPoint;
    QDateTime lastPoint;
    int warningCount = 0;
    int errorCount = 0;
    bool needsDeepSync = false;
    bool encrypted = false;
    QByteArray hint; // base64, as listings show it
    QList<PointInfo> points;
};

// The operations on a repository that do not belong to one run: listings,
// deletion, retention, deep sync. Every call opens its own connection.
class Repository
{
public:
    explicit Repository(const Location& location);

    const Location& location() const { return m_location; }
    Kel::Archive::Layout layout() const { return Kel::Archive::Layout(m_location.prefix); }

    Status bunches(QList<BunchInfo>* bunches) const;
    // Generations that hold at least one restore point, oldest first, each
    // with its points (oldest first).
    Status generations(const QString& bunch, QList<GenerationInfo>* generations) const;

    // Removes the bunch or one generation: the restore points first, so that
    // nothing half-deleted is ever listed, then data, then the records.
    Status removeBunch(const QString& bunch) const;
    Status removeGeneration(const QString& bunch, const QString& generation) const;

    // Retention by age: removes every generation whose newest restore point
    // is older than the cut-off, but never the newest generation.
    Status applyRetention(const QString& bunch, const QDateTime& cutoff,
                          QStringList* removed) const;

    // Rebuilds the local cache of a generation from the storage alone.
    Status deepSync(const QString& bunch, const QString& generation,
                    const QByteArray& password) const;

    std::unique_ptr<Cache> openCache(const QString& bunch, QString* error) const;
    QString cachePath(const QString& bunch) const;

private:
    Location m_location;
};

// Reading words for the administrator, used in every status message.
Status failure(const QString& message);

} // namespace Orv::Repository
