#include "GroupPlan.h"

#include "CommandCreateBackupPlan.h"
#include "CommandCreateRestorePlan.h"
#include "CommandDeletePlan.h"
#include "CommandEditBackupPlan.h"
#include "CommandEditRestorePlan.h"
#include "CommandPlanDetailInfo.h"
#include "CommandPlanList.h"
#include "CommandStartPlan.h"
#include "CommandStopPlan.h"

namespace Orv::CLI {

PlanGroup::PlanGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("plan"), QStringLiteral("plan commands"), parent)
{
    addSubItem(QSharedPointer<CommandPlanList>::create());
    addSubItem(QSharedPointer<CommandPlanDetailInfo>::create());
    addSubItem(QSharedPointer<CommandStartPlan>::create());
    addSubItem(QSharedPointer<CommandStopPlan>::create());
    addSubItem(QSharedPointer<CommandDeletePlan>::create());
    addSubItem(QSharedPointer<CommandCreateBackupPlan>::create());
    addSubItem(QSharedPointer<CommandEditBackupPlan>::create());
    addSubItem(QSharedPointer<CommandCreateRestorePlan>::create());
    addSubItem(QSharedPointer<CommandEditRestorePlan>::create());
}

} // namespace Orv::CLI
