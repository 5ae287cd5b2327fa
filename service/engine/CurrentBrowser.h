#pragma once

#include "kelBackupFormat/CurrentFormat.h"
#include "orvRepository/Repository.h"
#include "service/engine/CurrentStore.h"

#include <QList>
#include <QStringList>

namespace Orv::Engine {

// What the storage holds of one plan of the current format, read without
// the password: its name, its keys' clear part and the clear header of every
// committed run, oldest first.
struct CurrentPlanInfo
{
    QString plan;
    QString name; // the plan's id when its runs predate names in manifests
    bool encrypted = false;
    QByteArray hint;
    QList<Kel::Archive::ManifestHeader> runs;
    // The local cache does not hold the newest run: a deep sync rebuilds it.
    bool cacheStale = false;
};

// The read side of the current format for the repository requests: the
// plans of an account, what a run holds, deep sync, check and removal.
// Every call opens its own connection; nothing here writes a version or a
// manifest, so it may run beside a backup of another plan.
class CurrentBrowser
{
public:
    explicit CurrentBrowser(const Orv::Repository::Repository& repository);

    // Every plan with keys in the storage, by id. With newestOnly, only the
    // newest run's header is read (enough for the plan's name).
    Orv::Repository::Status plans(QList<CurrentPlanInfo>* plans, bool newestOnly = false) const;
    // One plan; *found is false when the storage holds nothing of it.
    Orv::Repository::Status plan(const QString& plan, CurrentPlanInfo* info, bool* found,
                                 bool newestOnly = false) const;

    // The entries of the folder at path ("/" for the top) in a run, in the
    // manifest's order, from offset on, at most limit of them; *next is the
    // offset after the last one returned, or -1 when the folder has no more.
    // Folders on the way to the sources are shown though no manifest names
    // them.
    Orv::Repository::Status list(const QString& plan, const QString& run,
                                 const QByteArray& password, const QByteArray& path, int offset,
                                 int limit, QList<Kel::Archive::ManifestEntry>* entries,
                                 int* next) const;
    // For each path, whether the run holds it (or something below it).
    Orv::Repository::Status exists(const QString& plan, const QString& run,
                                   const QByteArray& password, const QList<QByteArray>& paths,
                                   QList<bool>* found) const;

    // Rebuilds the plan's local cache from the newest manifest; a wrong
    // password is an error that leaves the cache as it was.
    Orv::Repository::Status deepSync(const QString& plan, const QByteArray& password) const;
    // Reads every version the manifests name, and the full versions they
    // build on, through the piece reader; each problem names the path, the
    // version and the run. Each object is read once however many runs name it.
    Orv::Repository::Status check(const QString& plan, const QByteArray& password,
                                  QStringList* problems) const;
    // What a run's consistency check costs: one listing of the plan's
    // versions, and every version the run's manifest names (and the full
    // version each builds on) must be in it and not empty. Nothing is read.
    Orv::Repository::Status checkPresence(const QString& plan, const QByteArray& password,
                                          const QString& run, QStringList* problems) const;
    // Removes the plan's manifests first, so that no half-removed run is ever
    // listed, then its versions, then its keys, and its local cache.
    Orv::Repository::Status remove(const QString& plan) const;

private:
    Orv::Repository::Status open(CurrentStore& store, const QByteArray& password) const;
    QString cachePath(const QString& plan) const;

    const Orv::Repository::Repository& m_repository;
};

} // namespace Orv::Engine
