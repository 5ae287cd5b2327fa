#pragma once

#include "orvRepository/Repository.h"
#include "service/engine/RunDescription.h"

#include <atomic>

namespace Orv::Engine {

// One backup run of the current format: walks the sources, stores every new
// or changed file as a version object of its own, on several threads, and
// commits the run with a manifest that names every entry and its version.
// Unchanged files (size, times, inode as in the last manifest) read nothing.
// run() blocks; stop() may come from any thread and ends the run soon after,
// with nothing committed.
class CurrentArchiver
{
public:
    CurrentArchiver(const Orv::Repository::Repository& repository,
                    const RunDescription& description);
    ~CurrentArchiver();

    RunResult run();
    void stop() { m_stop = true; }
    const RunProgress& progress() const { return m_progress; }

private:
    class Uploader;
    class Visitor;

    const Orv::Repository::Repository& m_repository;
    RunDescription m_description;
    RunProgress m_progress;
    std::atomic_bool m_stop{false};
};

} // namespace Orv::Engine
