#pragma once

#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/Plan/PlanStatus.h"
#include "service/jobs/RunHistory.h"

#include <QHash>
#include <QObject>
#include <QThreadPool>
#include <QUuid>
#include <functional>
#include <memory>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class PlanCatalog;
class PlanRun;
struct RunOutcome;

// Runs plans: on request (StartPlan, StopPlan) and when the scheduler says
// so. One run per plan at a time; runs of different plans go side by side up
// to a limit, the others wait their turn as Queued. Each run is recorded in
// the run history when it starts and when it ends, and ends with runEnded.
class JobRunner : public QObject
{
    Q_OBJECT
public:
    using Clock = std::function<QDateTime()>;

    // The catalogs and the history must outlive this object.
    JobRunner(PlanCatalog& plans, AccountCatalog& accounts, RunHistory& history,
              QObject* parent = nullptr);
    // Stops every run and waits for them.
    ~JobRunner() override;

    void install(HandlerRegistry& registry);
    void setClock(Clock clock) { m_clock = std::move(clock); }
    // The folder of the repositories' local caches.
    void setCacheRoot(const QString& folder) { m_cacheRoot = folder; }

    // Starts a run of the plan; false with the reason when it cannot start
    // (the reason is also the run's recorded message when the plan itself is
    // at fault).
    bool start(const QUuid& planId, bool forceFull, QString* error);
    // Asks the plan's run to stop; false when the plan does not run.
    bool stop(const QUuid& planId, QString* error);
    // Stops every run and waits for them to end: the service is stopping.
    void stopAll();

    Orv::Info::Plan::PlanStatus status(const QUuid& planId) const;
    QString progress(const QUuid& planId) const;
    bool isRunning(const QUuid& planId) const { return m_jobs.contains(planId); }
    bool anyRunning() const { return !m_jobs.isEmpty(); }
    // Changes whenever a run starts, changes state or ends.
    quint64 generation() const { return m_generation; }

signals:
    void runEnded(const QUuid& planId, Orv::Info::Plan::PlanResult result);

private:
    struct Job;
    void finish(const QUuid& planId, qint64 runId, const RunOutcome& outcome);
    QString recordRefusal(const QUuid& planId, const QString& reason);
    // The ids (without braces) of the current-format backup plans that write
    // to the storage account.
    QStringList currentFormatPlans(const QUuid& storage);

    PlanCatalog& m_plans;
    AccountCatalog& m_accounts;
    RunHistory& m_history;
    Clock m_clock = [] { return QDateTime::currentDateTime(); };
    QString m_cacheRoot;
    QHash<QUuid, std::shared_ptr<Job>> m_jobs;
    QThreadPool m_pool;
    quint64 m_generation = 1;
    bool m_stoppingAll = false;
};

} // namespace Orv::Service
