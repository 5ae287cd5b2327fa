#include "service/jobs/JobRunner.h"

#include "orvCommon/BackendConfig.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/Backup.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/Plan/Restore.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/channel/HandlerRegistry.h"
#include "service/jobs/PlanRun.h"
#include "service/plans/PlanCatalog.h"

#include <QCoreApplication>
#include <QJsonArray>
#include <QTimer>

namespace Orv::Service {

namespace {

namespace V2Plan = Orv::Common::Communication::V2::Plan;
using Orv::Info::Plan::PlanResult;
using Orv::Info::Plan::PlanStatus;

// Plans that run side by side; the others queue. Each run has its own
// threads, so more would only share the same disks and links.
constexpr int kParallelRuns = 4;

} // namespace

struct JobRunner::Job
{
    std::shared_ptr<PlanRun> run;
    std::atomic_bool started{false};
    bool stopping = false;
    bool timedOut = false;
    // A restore plan made to run once goes after its run succeeded.
    bool removeAfterSuccess = false;
    QTimer* limit = nullptr;
};

JobRunner::JobRunner(PlanCatalog& plans, AccountCatalog& accounts, RunHistory& history,
                     QObject* parent)
    : QObject(parent), m_plans(plans), m_accounts(accounts), m_history(history)
{
    m_pool.setMaxThreadCount(kParallelRuns);
    // A plan waits for its turn without a thread of its own; the pool's
    // threads end when idle, so an idle service keeps none.
    m_pool.setExpiryTimeout(30000);
}

JobRunner::~JobRunner()
{
    stopAll();
}

void JobRunner::install(HandlerRegistry& registry)
{
    registry.addTyped<V2Plan::StartPlan>(
        [this](const V2Plan::StartPlan::Request& request, const RequestContext&) {
            QString error;
            if (!start(request.planId(), request.isFull(), &error))
                return TypedOutcome::failed(error);
            return TypedOutcome::done(V2Plan::StartPlan::Response());
        });
    registry.addTyped<V2Plan::StopPlan>(
        [this](const V2Plan::StopPlan::Request& request, const RequestContext&) {
            QString error;
            if (!stop(request.planId(), &error))
                return TypedOutcome::failed(error);
            return TypedOutcome::done(V2Plan::StopPlan::Response());
        });
}

QString JobRunner::recordRefusal(const QUuid& planId, const QString& reason)
{
    QString error;
    const qint64 id = m_history.begin(planId, m_clock(), &error);
    if (id == 0)
        return reason;
    RunRecord record;
    record.id = id;
    record.planId = planId;
    record.started = m_clock();
    record.finished = record.started;
    record.result = PlanResult::Failed;
    record.message = reason;
    m_history.finish(record);
    ++m_generation;
    qCWarning(lcService).noquote() << "Plan" << planId.toString() << "cannot run:" << reason;
    return reason;
}

bool JobRunner::start(const QUuid& planId, bool forceFull, QString* error)
{
    if (m_jobs.contains(planId)) {
        *error = QStringLiteral("Plan already running.\n");
        return false;
    }
    const QSharedPointer<Orv::Info::Plan::Base> plan = m_plans.load(planId, error);
    if (!plan)
        return false;
    const std::optional<QJsonObject> stored = m_accounts.find(plan->storage());
    if (!stored) {
        *error =
            recordRefusal(planId, QStringLiteral("The plan's storage account %1 does not exist")
                                      .arg(plan->storage().toString()));
        return false;
    }
    const auto account = Orv::Info::Storage::Connection::fromRecord(*stored);
    QJsonObject params = account.detailParams();
    if (!AccountSecrets::open(&params, error)) {
        *error =
            recordRefusal(planId, QStringLiteral("The secrets of the plan's storage account "
                                                 "cannot be read with this installation's key"));
        return false;
    }
    RunRequest request;
    // The runs' times are those of the service's clock, as their history.
    request.backup.now = [clock = m_clock] { return clock().toUTC(); };
    if (!makeRunRequest(*plan, account, Orv::Common::BackendConfig::prepare(params.toVariantMap()),
                        RunSettings::current(), m_cacheRoot, forceFull, &request, error)) {
        *error = recordRefusal(planId, *error);
        return false;
    }
    // A restore that names no backup plan takes those of this machine; on a
    // machine that has none, the run finds them in the storage.
    if (request.restore && request.currentFormat && request.restoreDescription.bunch.isEmpty())
        request.currentPlans = currentFormatPlans(plan->storage());
    const qint64 runId = m_history.begin(planId, m_clock(), error);
    if (runId == 0)
        return false;

    auto job = std::make_shared<Job>();
    job->run = std::make_shared<PlanRun>(std::move(request));
    if (const auto* restore = dynamic_cast<const Orv::Info::Plan::Restore*>(plan.data()))
        job->removeAfterSuccess =
            restore->deletePlan() == Orv::Info::Plan::Restore::DeleteType::OnSucceeds;
    const qint64 stopAfter = qint64(plan->schedule().stopAfter());
    if (stopAfter > 0) {
        job->limit = new QTimer(this);
        job->limit->setSingleShot(true);
        connect(job->limit, &QTimer::timeout, this, [this, planId] {
            const auto it = m_jobs.find(planId);
            if (it == m_jobs.end())
                return;
            qCInfo(lcService).noquote() << "Plan" << planId.toString() << "reached its time limit";
            (*it)->timedOut = true;
            (*it)->stopping = true;
            (*it)->run->stop();
            ++m_generation;
        });
        job->limit->start(int(qMin<qint64>(stopAfter, std::numeric_limits<int>::max())));
    }
    m_jobs.insert(planId, job);
    ++m_generation;
    qCInfo(lcService).noquote() << QStringLiteral("Plan \"%1\" (%2) starts%3")
                                       .arg(plan->name(), planId.toString(),
                                            forceFull ? QStringLiteral(", full") : QString());
    m_pool.start([this, job, planId, runId] {
        job->started = true;
        const RunOutcome outcome = job->run->run();
        QMetaObject::invokeMethod(
            this, [this, planId, runId, outcome] { finish(planId, runId, outcome); },
            Qt::QueuedConnection);
    });
    return true;
}

void JobRunner::finish(const QUuid& planId, qint64 runId, const RunOutcome& done)
{
    const std::shared_ptr<Job> job = m_jobs.take(planId);
    RunOutcome outcome = done;
    if (job && job->timedOut) {
        outcome.result = PlanResult(PlanResult::Stopped);
        outcome.message = QStringLiteral("Stopped: the run reached the plan's time limit");
    } else if (outcome.result == PlanResult(PlanResult::Stopped) && m_stoppingAll) {
        outcome.message =
            QStringLiteral("Stopped: the service was stopping") +
            (outcome.message.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(outcome.message));
    } else if (outcome.result == PlanResult(PlanResult::Stopped) && outcome.message.isEmpty()) {
        outcome.message = QStringLiteral("Stopped on request");
    }
    if (job && job->limit)
        job->limit->deleteLater();
    RunRecord record;
    record.id = runId;
    record.planId = planId;
    if (const auto last = m_history.last(planId); last && last->id == runId)
        record.started = last->started;
    record.finished = m_clock();
    record.result = int(outcome.result.value());
    record.files = outcome.files;
    record.bytes = outcome.bytes;
    record.uploaded = outcome.uploaded;
    record.failed = outcome.failed;
    record.warnings = outcome.warnings;
    record.errors = outcome.errors;
    record.full = outcome.full;
    record.message = outcome.message;
    const QString error = m_history.finish(record);
    if (!error.isEmpty())
        qCWarning(lcService).noquote()
            << "Cannot record the run of" << planId.toString() << ":" << error;
    ++m_generation;
    qCInfo(lcService).noquote() << QStringLiteral("Plan %1 ended: %2%3")
                                       .arg(planId.toString(), outcome.result.displayName(),
                                            outcome.message.isEmpty()
                                                ? QString()
                                                : QStringLiteral(" - ") + outcome.message);
    // Those who listen (the e-mail) still find the plan.
    emit runEnded(planId, outcome.result);
    if (job && job->removeAfterSuccess && outcome.result == PlanResult(PlanResult::Success)) {
        const QString removed = m_plans.remove(planId);
        if (removed.isEmpty()) {
            m_history.forget(planId);
            qCInfo(lcService).noquote() << "Plan" << planId.toString() << "ran once and is removed";
        } else
            qCWarning(lcService).noquote()
                << "Cannot remove the run-once plan" << planId.toString() << ":" << removed;
    }
}

QStringList JobRunner::currentFormatPlans(const QUuid& storage)
{
    namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;
    QStringList plans;
    const QJsonArray rows = m_plans.rows();
    for (const QJsonValue& value : rows) {
        const QJsonObject row = value.toObject();
        if (QUuid(row.value(QLatin1String(Info::Storage)).toString()) != storage)
            continue;
        const auto plan =
            Orv::Info::Plan::Factory::create(row.value(QLatin1String(Info::PlanXml)).toString());
        if (plan && !plan->isArchive() && dynamic_cast<const Orv::Info::Plan::Backup*>(plan.data()))
            plans.append(plan->id().toString(QUuid::WithoutBraces));
    }
    return plans;
}

bool JobRunner::stop(const QUuid& planId, QString* error)
{
    const auto it = m_jobs.find(planId);
    if (it == m_jobs.end()) {
        *error = QStringLiteral("Plan already stopped");
        return false;
    }
    qCInfo(lcService).noquote() << "Plan" << planId.toString() << "is asked to stop";
    (*it)->stopping = true;
    (*it)->run->stop();
    ++m_generation;
    return true;
}

void JobRunner::stopAll()
{
    m_stoppingAll = true;
    for (const auto& job : qAsConst(m_jobs)) {
        job->stopping = true;
        job->run->stop();
    }
    m_pool.waitForDone();
    // The runs' endings were queued to this object; record them now, while
    // the database is still open.
    QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
}

PlanStatus JobRunner::status(const QUuid& planId) const
{
    const auto it = m_jobs.constFind(planId);
    if (it == m_jobs.constEnd())
        return PlanStatus::Idle;
    if ((*it)->stopping)
        return PlanStatus::Stopping;
    return (*it)->started ? PlanStatus::Running : PlanStatus::Queued;
}

QString JobRunner::progress(const QUuid& planId) const
{
    const auto it = m_jobs.constFind(planId);
    if (it == m_jobs.constEnd())
        return {};
    if (!(*it)->started)
        return QStringLiteral("Waiting for its turn");
    return (*it)->run->progressText();
}

} // namespace Orv::Service
