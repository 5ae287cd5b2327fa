#pragma once

#include "orvRepository/Generation.h"
#include "orvRepository/Repository.h"
#include "service/engine/RestoreTarget.h"

#include <QDateTime>
#include <atomic>

namespace Orv::Engine {

// What one restore takes from a bunch and where it puts it.
struct RestoreDescription
{
    QString bunch;
    QString generation; // empty: the newest generation
    QString point;      // empty: the newest point (or the one at pointInTime)
    QDateTime pointInTime;
    QList<QByteArray> paths; // absolute original paths; empty: everything
    // Also what earlier points of the generation held and the chosen one no
    // longer does (files deleted at the source before it), each as it was
    // last backed up.
    bool includeDeleted = false;
    RestoreTarget::Options target;
    QByteArray password;
    int threads = 2;
};

struct RestoreResult
{
    bool ok = false;
    QString message;
    quint64 files = 0;
    quint64 bytes = 0;
    quint64 skipped = 0;
    quint64 retired = 0; // files left out: retention deleted their versions
    QStringList failed;  // each "path: reason"
};

// Restores a restore point: walks its trees for the chosen paths, creates
// folders, links and special files at once, then fetches every pack that
// holds needed data once, in name order, on several threads, writing each
// piece into every file that holds it. Folder metadata comes last, deepest
// first. What cannot be restored is listed, and the rest still comes back.
class Restorer
{
public:
    Restorer(const Orv::Repository::Repository& repository, const RestoreDescription& description);
    ~Restorer();

    RestoreResult run();
    void stop() { m_stop = true; }

    std::atomic<quint64> filesDone{0};
    std::atomic<quint64> bytesDone{0};

private:
    struct Plan;
    void fetch(Plan& plan, Orv::Repository::Generation& generation, RestoreTarget& target);

    const Orv::Repository::Repository& m_repository;
    RestoreDescription m_description;
    std::atomic_bool m_stop{false};
    std::atomic_bool m_diskFull{false};
};

} // namespace Orv::Engine
