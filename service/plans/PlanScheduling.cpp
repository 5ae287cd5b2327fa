#include "service/plans/PlanScheduling.h"

#include "orvCommon/Communication/Format.h"
#include "orvInfo/Plan/Backup.h"
#include "orvInfo/Plan/Factory.h"
#include "service/ServiceLog.h"
#include "service/jobs/JobRunner.h"
#include "service/jobs/RunHistory.h"
#include "service/plans/PlanCatalog.h"

#include <QJsonArray>

namespace Orv::Service {

namespace {

namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;

// How often the plan folder is looked at for changes made by hand; an edit
// through the service is taken at once.
constexpr int kPollMs = 5000;

} // namespace

PlanScheduling::PlanScheduling(PlanCatalog& plans, RunHistory& history, JobRunner& runner,
                               Scheduler::Clock clock, QObject* parent)
    : QObject(parent), m_plans(plans), m_history(history), m_runner(runner),
      m_scheduler(std::move(clock))
{
    connect(&m_scheduler, &Scheduler::due, this, &PlanScheduling::onDue);
    connect(&m_poll, &QTimer::timeout, this, &PlanScheduling::sync);
}

void PlanScheduling::start()
{
    sync();
    m_scheduler.start();
    m_poll.start(kPollMs);
}

void PlanScheduling::sync()
{
    const QJsonArray rows = m_plans.rows();
    if (m_plans.generation() == m_generation)
        return;
    m_generation = m_plans.generation();
    QSet<QUuid> seen;
    for (const QJsonValue& value : rows) {
        const QJsonObject row = value.toObject();
        const QUuid id(row.value(QLatin1String(Info::ID)).toString());
        QString error;
        const auto plan = Orv::Info::Plan::Factory::create(
            row.value(QLatin1String(Info::PlanXml)).toString(), &error);
        if (!plan || id.isNull())
            continue;
        seen.insert(id);
        Scheduler::Entry entry;
        entry.planId = id;
        entry.schedule = plan->schedule();
        if (const auto* backup = dynamic_cast<const Orv::Info::Plan::Backup*>(plan.data()))
            entry.fullSchedule = backup->forceFullSchedule();
        else
            entry.fullSchedule.setEnable(false);
        entry.runMissed = plan->runMuissedPlan();
        // A plan that never ran has missed what came due since it was saved.
        const auto last = m_history.last(id);
        entry.lastStart = last ? last->started : m_plans.savedAt(id);
        m_scheduler.setPlan(entry);
    }
    for (const QUuid& id : qAsConst(m_known))
        if (!seen.contains(id))
            m_scheduler.removePlan(id);
    m_known = seen;
}

void PlanScheduling::onDue(const QUuid& planId, bool full)
{
    if (m_runner.isRunning(planId)) {
        qCInfo(lcService).noquote()
            << "Plan" << planId.toString() << "is due but still running; this run is skipped";
        return;
    }
    QString error;
    if (!m_runner.start(planId, full, &error))
        qCWarning(lcService).noquote()
            << "Scheduled plan" << planId.toString() << "did not start:" << error.trimmed();
}

QString PlanScheduling::describe(const QUuid& planId) const
{
    const QDateTime next = m_scheduler.nextRun(planId);
    const QDateTime full = m_scheduler.nextFullRun(planId);
    if (!next.isValid() && !full.isValid())
        return QStringLiteral("Not scheduled");
    QString text;
    if (next.isValid())
        text = QStringLiteral("Next run %1").arg(next.toString(QStringLiteral("dd.MM.yyyy hh:mm")));
    if (full.isValid())
        text += (text.isEmpty() ? QString() : QStringLiteral(", ")) +
                QStringLiteral("next full run %1")
                    .arg(full.toString(QStringLiteral("dd.MM.yyyy hh:mm")));
    return text;
}

} // namespace Orv::Service
