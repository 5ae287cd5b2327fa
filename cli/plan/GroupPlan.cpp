#include "GroupPlan.h"

namespace Orv::CLI {

PlanGroup::PlanGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("plan"), QStringLiteral("plan commands"), parent)
{
}

} // namespace Orv::CLI
