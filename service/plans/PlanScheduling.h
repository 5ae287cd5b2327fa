#pragma once

#include "service/plans/Scheduler.h"

#include <QObject>
#include <QSet>
#include <QTimer>
#include <QUuid>

namespace Orv::Service {

class JobRunner;
class PlanCatalog;
class RunHistory;

// Keeps the scheduler in step with the plan files and starts the plans it
// says are due. The plans are read again whenever the folder changes (an edit
// through the service, or a file changed by hand, noticed within seconds), so
// a plan edited or removed while it waits is rescheduled or dropped.
class PlanScheduling : public QObject
{
    Q_OBJECT
public:
    // Everything must outlive this object.
    PlanScheduling(PlanCatalog& plans, RunHistory& history, JobRunner& runner,
                   Scheduler::Clock clock, QObject* parent = nullptr);

    // Reads the plans and starts the scheduler: called once the database is
    // open, so that the last starts are known.
    void start();
    // Reads the plans again if their files changed.
    void sync();
    // Starts what is due now; for a clock that jumps (tests).
    void checkNow() { m_scheduler.check(); }
    // The next run of a plan, for people.
    QString describe(const QUuid& planId) const;

private:
    void onDue(const QUuid& planId, bool full);

    PlanCatalog& m_plans;
    RunHistory& m_history;
    JobRunner& m_runner;
    Scheduler m_scheduler;
    QSet<QUuid> m_known;
    quint64 m_generation = 0;
    QTimer m_poll;
};

} // namespace Orv::Service
