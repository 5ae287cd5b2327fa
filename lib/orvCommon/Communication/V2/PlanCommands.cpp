#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::Common::Communication::V2::Plan {

const QUuid GetPlanList::CommandId(QStringLiteral("{5b0c2f8e-4a57-4d3c-9a8e-1f0d6c2b7e41}"));

QJsonObject GetPlanList::Request::toJson() const
{
    return {{QStringLiteral("profile"), m_profile}};
}

bool GetPlanList::Request::fromJson(const QJsonObject& object)
{
    const QJsonValue profile = object.value(QStringLiteral("profile"));
    if (!profile.isString() && !profile.isUndefined())
        return false;
    m_profile = profile.toString();
    return true;
}

QJsonObject GetPlanList::Response::toJson() const
{
    return {{QStringLiteral("planList"), m_plans}};
}

bool GetPlanList::Response::fromJson(const QJsonObject& object)
{
    const QJsonValue plans = object.value(QStringLiteral("planList"));
    if (!plans.isArray())
        return false;
    m_plans = plans.toArray();
    return true;
}

} // namespace Orv::Common::Communication::V2::Plan
