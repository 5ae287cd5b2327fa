#pragma once

#include "orvRepository/CurrentVersions.h"
#include "orvRepository/Repository.h"
#include "service/engine/RunDescription.h"

#include <QSet>
#include <memory>

namespace Orv::Repository {
class CurrentCache;
}

namespace Orv::Engine {

class CurrentStore;

// Which of one file's versions (oldest first) the policy removes, as
// indices. goneSince is the time of the first run that no longer found the
// file at its source; invalid while it is there. The newest version of a
// file that is there always stays: the newest run's manifest names it, and
// the next run takes it over while the file does not change. A version that
// a kept one builds on stays with it.
QVector<int> versionsToRemove(const QVector<Orv::Repository::StoredVersion>& versions,
                              const QDateTime& goneSince,
                              const RunDescription::VersionRetention& policy, const QDateTime& now);

// The retention of file versions of one plan of the current format, and the
// clean-up of the objects that runs left without a manifest.
//
// Manifests are never rewritten: a manifest names every version its run saw.
// A retention pass first stores a record of the versions it removes
// (<plan>/retention/<run>), then deletes them, so the manifests and the
// records together tell the truth: a version that a manifest names and a
// record names too was removed on purpose, and a restore leaves it out
// without calling it missing. A pass cut off after its record was stored is
// finished by the next one, which deletes what that record names.
class CurrentRetention
{
public:
    CurrentRetention(CurrentStore& store, const RunDescription& description);
    ~CurrentRetention();

    // Opens the local index (a cache, rebuilt from the storage when lost).
    Orv::Repository::Status open(const QString& path);
    // Before the run stores anything: its objects are cleaned up by a later
    // run unless its manifest lands.
    void started(const QString& run);
    // The run's manifest is stored; its entries are still the cache's run.
    void committed(const QString& run, Orv::Repository::CurrentCache& cache);

    // After the run committed: removes what the policy no longer keeps and
    // what runs before this one left without a manifest. runs are the runs
    // with a manifest, this one included, oldest first.
    struct Removed
    {
        quint64 versions = 0;
        quint64 leftovers = 0;
    };
    Orv::Repository::Status apply(const QString& run, const QStringList& runs, Removed* removed);

private:
    QString nameOf(const Kel::Archive::ManifestEntry& entry) const;
    Orv::Repository::Status catchUp(const QStringList& runs, bool* read);
    Orv::Repository::Status learnRecords();
    Orv::Repository::Status finishRecord(const QString& record, quint64* removed);
    Orv::Repository::Status decide(const QString& run, const QStringList& runs, quint64* removed);
    Orv::Repository::Status sweep(const QString& run, const QStringList& runs, quint64* removed);

    CurrentStore& m_store;
    const RunDescription& m_description;
    std::unique_ptr<Orv::Repository::CurrentVersions> m_index;
};

// Of the versions missing from the storage (full object names), those that a
// retention record names: removed on purpose, not lost.
Orv::Repository::Status retiredVersions(CurrentStore& store, const QSet<QString>& missing,
                                        QSet<QString>* retired);

} // namespace Orv::Engine
