#include "CommandStopPlan.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::CLI {

using StopPlan = Orv::Common::Communication::V2::Plan::StopPlan;

CommandStopPlan::CommandStopPlan(QObject* parent)
    : CommandExistingPlanBase(QStringLiteral("stop"), QStringLiteral("stop plan now"),
                              QStringLiteral("Plan ID"), true, parent)
{
}

void CommandStopPlan::planFound(const QSharedPointer<Orv::Info::PlanObject>& plan)
{
    if (!plan->status().isRunning())
        throw QStringLiteral("Plan already stopped");
    m_planId = plan->id();
    stopPlan();
}

void CommandStopPlan::stopPlan()
{
    try {
        auto request = QSharedPointer<StopPlan::Request>::create();
        request->setPlanId(m_planId);
        CommandChannel::sendTyped(StopPlan::CommandId, request, this,
                                  &CommandStopPlan::onStopPlanResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandStopPlan::onStopPlanResult()
{
    finishOnTypedResult([this] { stopPlan(); });
}

} // namespace Orv::CLI
