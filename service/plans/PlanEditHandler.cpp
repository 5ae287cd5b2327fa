#include "service/plans/PlanEditHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/Factory.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/channel/HandlerRegistry.h"
#include "service/jobs/JobRunner.h"
#include "service/jobs/RunHistory.h"
#include "service/plans/PlanCatalog.h"

namespace Orv::Service {

namespace {

namespace Edit = Orv::Common::Communication::Commands::Format::Plan::CommonEdit;
namespace V2Plan = Orv::Common::Communication::V2::Plan;

// The longest plan document taken: far above any real plan, far below the
// frame limit.
constexpr int kMaxPlanXml = 4 * 1024 * 1024;

} // namespace

PlanEditHandler::PlanEditHandler(PlanCatalog& plans, AccountCatalog& accounts, RunHistory& history,
                                 JobRunner& runner)
    : m_plans(plans), m_accounts(accounts), m_history(history), m_runner(runner)
{
}

void PlanEditHandler::install(HandlerRegistry& registry)
{
    registry.addNamed(QLatin1String(Edit::Name), [this](const QJsonObject& params,
                                                        const RequestContext&) {
        const QString xml = params.value(QLatin1String(Edit::Request::PlanXml)).toString();
        if (xml.isEmpty() || xml.size() > kMaxPlanXml)
            return NamedOutcome::failure(QStringLiteral("The request carries no plan"));
        QString error;
        const auto plan = Orv::Info::Plan::Factory::create(xml, &error);
        if (!plan)
            return NamedOutcome::failure(
                QStringLiteral("The plan cannot be read: %1").arg(error.left(512)));
        const QJsonValue named = params.value(QLatin1String(Edit::Request::ID));
        if (named.isString() && !named.toString().isEmpty() &&
            QUuid(named.toString()) != plan->id())
            return NamedOutcome::failure(
                QStringLiteral("The plan's ID does not match the request's ID"));
        if (plan->id().isNull())
            return NamedOutcome::failure(QStringLiteral("The plan has no ID"));
        if (!m_accounts.find(plan->storage()))
            return NamedOutcome::failure(
                QStringLiteral("The plan's storage account %1 does not exist")
                    .arg(plan->storage().toString()));
        error = m_plans.save(*plan);
        if (!error.isEmpty()) {
            qCWarning(lcService).noquote()
                << "Cannot save the plan" << plan->id().toString() << ":" << error;
            return NamedOutcome::failure(QStringLiteral("The plan cannot be saved: %1").arg(error));
        }
        qCInfo(lcService).noquote()
            << QStringLiteral("Plan \"%1\" (%2) saved").arg(plan->name(), plan->id().toString());
        changed();
        return NamedOutcome::success();
    });
    registry.addTyped<V2Plan::RemovePlan>(
        [this](const V2Plan::RemovePlan::Request& request, const RequestContext&) {
            QString error;
            if (m_runner.isRunning(request.planId()))
                m_runner.stop(request.planId(), &error);
            error = m_plans.remove(request.planId());
            if (!error.isEmpty())
                return TypedOutcome::failed(error);
            m_history.forget(request.planId());
            changed();
            qCInfo(lcService).noquote() << "Plan" << request.planId().toString() << "removed";
            return TypedOutcome::done(V2Plan::RemovePlan::Response());
        });
}

} // namespace Orv::Service
