#include "CommandDeletePlan.h"

#include "CommandChannel.h"
#include "Console.h"
#include "PlanObject.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::CLI {

using RemovePlan = Orv::Common::Communication::V2::Plan::RemovePlan;

CommandDeletePlan::CommandDeletePlan(QObject* parent)
    : CommandExistingPlanBase(QStringLiteral("delete"), QStringLiteral("delete plan"),
                              QStringLiteral("Plan ID"), true, parent),
      m_confirmOption({QStringLiteral("c"), QStringLiteral("confirm")},
                      QStringLiteral("Confirms the action"))
{
    addOption(m_confirmOption);
}

void CommandDeletePlan::planFound(const QSharedPointer<Orv::Info::PlanObject>& plan)
{
    if (!m_parser.isSet(m_confirmOption)) {
        print(QStringLiteral("Please confirm remove plan (use parameter --confirm or -c):\n") +
              PlanObject(plan).shortInfo());
        emit finished(DontShow);
        return;
    }
    m_planId = plan->id();
    deletePlan();
}

void CommandDeletePlan::deletePlan()
{
    try {
        if (!Orv::Common::Communication::Manager::instance())
            throw QStringLiteral("Communication manager is 0x00.\n");
        auto request = QSharedPointer<RemovePlan::Request>::create();
        request->setPlanId(m_planId);
        CommandChannel::sendTyped(RemovePlan::CommandId, request, this,
                                  &CommandDeletePlan::onDeletePlanResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandDeletePlan::onDeletePlanResult()
{
    finishOnTypedResult([this] { deletePlan(); });
}

} // namespace Orv::CLI
