#pragma once

#include "orvRepository/Repository.h"
#include "service/engine/RunDescription.h"

#include <atomic>

namespace Orv::Engine {

// One backup run of the new format: walks the sources, reads what changed
// since the last restore point, stores it through a pipeline of threads and
// commits a restore point. run() blocks; stop() may come from any thread and
// ends the run soon after, with nothing committed.
class Archiver
{
public:
    Archiver(const Orv::Repository::Repository& repository, const RunDescription& description);
    ~Archiver();

    RunResult run();
    void stop() { m_stop = true; }
    const RunProgress& progress() const { return m_progress; }

private:
    const Orv::Repository::Repository& m_repository;
    RunDescription m_description;
    RunProgress m_progress;
    std::atomic_bool m_stop{false};
};

} // namespace Orv::Engine
