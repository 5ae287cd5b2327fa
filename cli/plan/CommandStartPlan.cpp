#include "CommandStartPlan.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/Backup.h"
#include "orvInfo/Plan/Factory.h"

namespace Orv::CLI {

using StartPlan = Orv::Common::Communication::V2::Plan::StartPlan;

CommandStartPlan::CommandStartPlan(QObject* parent)
    : CommandExistingPlanBase(QStringLiteral("start"), QStringLiteral("run custom plan now"),
                              QStringLiteral("Plan id"), true, parent),
      m_forceFullOption(QStringLiteral("force-full"), QStringLiteral("Forces full backup"))
{
    addOption(m_forceFullOption);
}

void CommandStartPlan::planFound(const QSharedPointer<Orv::Info::PlanObject>& plan)
{
    if (plan->status().isRunning())
        throw QStringLiteral("Plan already running.\n");
    m_isFull = m_parser.isSet(m_forceFullOption);
    if (m_isFull)
        checkForceFull(*plan);
    m_planId = plan->id();
    startPlan();
}

void CommandStartPlan::checkForceFull(const Orv::Info::PlanObject& plan)
{
    if (plan.type() == Orv::Info::Plan::PlanType::Restore)
        throw QStringLiteral("Unknown --force-full parameter for restore plan.\n");
    QString reason;
    const auto backup = Orv::Info::Plan::Factory::create(plan.planXml(), &reason)
                            .dynamicCast<Orv::Info::Plan::Backup>();
    if (!backup)
        throw QStringLiteral("Cannot read the plan: %1\n").arg(reason);
    if (!backup->isArchive() && !backup->useDifferentialUpload())
        throw QStringLiteral("Unknown --force-full parameter for current backup format plan "
                             "(when block level - OFF).\n");
}

void CommandStartPlan::startPlan()
{
    try {
        auto request = QSharedPointer<StartPlan::Request>::create();
        request->setPlanId(m_planId);
        request->setIsFull(m_isFull);
        CommandChannel::sendTyped(StartPlan::CommandId, request, this,
                                  &CommandStartPlan::onStartPlanResult);
    } catch (const QString& message) {
        emit error(message);
    }
}

void CommandStartPlan::onStartPlanResult()
{
    finishOnTypedResult([this] { startPlan(); });
}

} // namespace Orv::CLI
