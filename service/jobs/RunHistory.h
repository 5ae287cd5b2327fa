#pragma once

#include <QDateTime>
#include <QHash>
#include <QString>
#include <QUuid>
#include <optional>

namespace Orv::Service {

// One run of a plan as the database's run_history table keeps it.
struct RunRecord
{
    qint64 id = 0;
    QUuid planId;
    QDateTime started;
    QDateTime finished; // invalid while the run goes on
    int result = 0;     // Orv::Info::Plan::PlanResult
    qint64 files = 0;
    qint64 bytes = 0;
    qint64 uploaded = 0;
    qint64 failed = 0;
    int warnings = 0;
    int errors = 0;
    bool full = false;
    QString message;

    qint64 durationMs() const { return finished.isValid() ? started.msecsTo(finished) : 0; }
};

// The history of plan runs. A run is written when it starts, so that a
// service killed during it finds the row at its next start and records the
// run as interrupted. Only the service writes the table, so the newest run
// of each plan is read once and then kept in memory.
class RunHistory
{
public:
    // Starts a run; its id, or 0 with the reason in *error.
    qint64 begin(const QUuid& planId, const QDateTime& started, QString* error);
    // Records how the run ended; empty on success, otherwise the reason.
    QString finish(const RunRecord& record);
    // Marks every run left unfinished (by a service that died) as
    // interrupted; returns the plans concerned.
    QList<QUuid> closeInterrupted(const QDateTime& now);
    // The newest run of the plan, or nothing when it never ran.
    std::optional<RunRecord> last(const QUuid& planId);
    // Every run of the plan, newest first, at most limit of them.
    QList<RunRecord> runs(const QUuid& planId, int limit);
    // Forgets a removed plan's runs.
    void forget(const QUuid& planId);
    // Changes whenever a newest run changes.
    quint64 generation() const { return m_generation; }

private:
    bool ensureLoaded();

    QHash<QUuid, RunRecord> m_last;
    bool m_loaded = false;
    quint64 m_generation = 1;
};

} // namespace Orv::Service
