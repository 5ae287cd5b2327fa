#pragma once

#include "orvInfo/Plan/PlanResult.h"
#include "service/jobs/RunRequest.h"

#include <QMutex>
#include <QStringList>
#include <atomic>
#include <functional>
#include <memory>

namespace Orv::Engine {
struct RunProgress;
struct RestoreResult;
struct RunResult;
} // namespace Orv::Engine

namespace Orv::Service {

// How a run ended, with its figures.
struct RunOutcome
{
    Orv::Info::Plan::PlanResult result{Orv::Info::Plan::PlanResult::Failed};
    QString message;
    qint64 files = 0;
    qint64 bytes = 0;
    qint64 uploaded = 0;
    qint64 failed = 0;
    int warnings = 0;
    int errors = 0;
    bool full = false;
};

// One run of a plan: the pre-action, the backup or the restore through the
// engine, the post-action. run() blocks and is meant for a worker thread;
// stop() and progressText() may be called from any thread.
class PlanRun
{
public:
    explicit PlanRun(RunRequest request);
    ~PlanRun();

    RunOutcome run();
    // Asks the run to end soon; it ends as Stopped, with nothing committed.
    void stop();
    bool isStopping() const { return m_stop; }
    // What the run is doing, for people: the step and its figures.
    QString progressText() const;

private:
    enum class Step
    {
        Starting,
        PreAction,
        Engine,
        Syncing,
        Checking,
        PostAction,
        Done,
    };
    // Runs an action; false with the reason when it failed or took too long.
    bool runAction(const PlanAction& action, const char* which, QString* error);
    RunOutcome runBackup();
    template <typename Engine>
    Orv::Engine::RunResult backUpWith(const Orv::Repository::Repository& repository);
    RunOutcome runRestore();
    template <typename Engine>
    Orv::Engine::RestoreResult restoreWith(const Orv::Repository::Repository& repository,
                                           const Orv::Engine::RestoreDescription& description);
    // Before a restore: rebuilds the local data of the generations that need
    // it; the reason when that failed.
    QString syncGenerations(const Orv::Repository::Repository& repository);
    // The current-format plans a restore takes, or why there are none.
    QString currentPlans(const Orv::Repository::Repository& repository, QStringList* plans);
    // After a backup: every object the restore points need is in the storage
    // (written: the generation of a new-format run, the run of a current one).
    void checkConsistency(const Orv::Repository::Repository& repository, const QString& written,
                          RunOutcome* outcome);
    void setStep(Step step);

    RunRequest m_request;
    std::atomic_bool m_stop{false};
    std::atomic<int> m_step{int(Step::Starting)};
    // The engine at work, whichever format: how to stop it and what it
    // tells. The mutex guards them.
    mutable QMutex m_mutex;
    std::function<void()> m_stopEngine;
    const Orv::Engine::RunProgress* m_backupProgress = nullptr;
    const std::atomic<quint64>* m_filesRestored = nullptr;
    const std::atomic<quint64>* m_bytesRestored = nullptr;
    qint64 m_lastFailed = 0;
};

} // namespace Orv::Service
