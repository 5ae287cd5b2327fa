#pragma once

#include "service/channel/EncodedJson.h"

#include <QJsonArray>
#include <QString>
#include <QUuid>
#include <functional>

namespace Orv::Service {

class HandlerRegistry;
class JobRunner;
class PlanCatalog;
class RunHistory;

// The plan list, as the named command "PlanGetList" and as the typed
// GetPlanList: the same rows either way, each with the plan's status, its
// next run and the figures of its last run. Monitoring tools ask for it all
// the time, so both answers are kept encoded until a plan file, the history
// or a run changes; while a plan runs its progress is read at every request.
class PlanListHandler
{
public:
    // Describes a plan's next run for people; empty when it has none.
    using ScheduleText = std::function<QString(const QUuid& planId)>;

    // Everything must outlive this handler, and this handler the registry.
    PlanListHandler(PlanCatalog& catalog, RunHistory& history, JobRunner& runner)
        : m_catalog(catalog), m_history(history), m_runner(runner)
    {
    }
    PlanListHandler(const PlanListHandler&) = delete;
    PlanListHandler& operator=(const PlanListHandler&) = delete;

    void install(HandlerRegistry& registry);
    void setScheduleText(ScheduleText text) { m_scheduleText = std::move(text); }
    // Makes the next request build its answer afresh (a schedule changed).
    void invalidate() { m_stamp = {}; }

private:
    struct Stamp
    {
        quint64 plans = 0;
        quint64 history = 0;
        quint64 runs = 0;
        bool operator==(const Stamp& other) const
        {
            return plans == other.plans && history == other.history && runs == other.runs;
        }
    };
    void refresh();
    QJsonArray rows();
    EncodedJson onePlan(const QUuid& id, bool withoutPlanXml) const;

    PlanCatalog& m_catalog;
    RunHistory& m_history;
    JobRunner& m_runner;
    ScheduleText m_scheduleText;
    Stamp m_stamp;
    QJsonArray m_rows;
    EncodedJson m_namedData;
    EncodedJson m_typedResponse;
    // The same rows without their PlanXml, for listings.
    EncodedJson m_slimResponse;
};

} // namespace Orv::Service
