#pragma once

#include "orvRepository/Repository.h"
#include "service/engine/Restorer.h"

#include <QSet>
#include <atomic>

namespace Orv::Engine {

class CurrentStore;

// Restores a run of the current format: the newest run, the run named in
// the description, or the newest run not later than its point in time. It
// reads that run's manifest in path order, makes folders, links and special
// files at once, and fetches each chosen file's version object on several
// threads. A missing or damaged version is named; the rest still comes back.
class CurrentRestorer
{
public:
    CurrentRestorer(const Orv::Repository::Repository& repository,
                    const RestoreDescription& description);
    ~CurrentRestorer();

    RestoreResult run();
    void stop() { m_stop = true; }

    std::atomic<quint64> filesDone{0};
    std::atomic<quint64> bytesDone{0};

private:
    class Fetcher;
    QSet<QByteArray> leaveOutRetired(CurrentStore& store, Fetcher& fetcher, RestoreResult* result);

    const Orv::Repository::Repository& m_repository;
    RestoreDescription m_description;
    std::atomic_bool m_stop{false};
};

} // namespace Orv::Engine
