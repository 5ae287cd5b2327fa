#include "orvCommon/Communication/V2/PlanCommands.h"

namespace Orv::Common::Communication::V2::Plan {

const QUuid GetPlanList::CommandId(QStringLiteral("{5b0c2f8e-4a57-4d3c-9a8e-1f0d6c2b7e41}"));
const QUuid StartPlan::CommandId(QStringLiteral("{0f6a3c1d-9b2e-4f57-8c41-6e2d7a9b3f10}"));
const QUuid StopPlan::CommandId(QStringLiteral("{7c2e91b4-3d58-4a6f-b0e2-91c4d5f8a723}"));
const QUuid RemovePlan::CommandId(QStringLiteral("{d4b8e2a7-61c3-4e9f-a5d0-3b7f2c8e6194}"));

QJsonObject PlanIdRequest::toJson() const
{
    return {{QStringLiteral("planId"), m_planId.toString(QUuid::WithoutBraces)}};
}

bool PlanIdRequest::fromJson(const QJsonObject& object)
{
    const QJsonValue id = object.value(QStringLiteral("planId"));
    if (!id.isString())
        return false;
    m_planId = QUuid::fromString(id.toString());
    return !m_planId.isNull();
}

QJsonObject StartPlan::Request::toJson() const
{
    QJsonObject object = PlanIdRequest::toJson();
    object.insert(QStringLiteral("isFull"), m_full);
    return object;
}

bool StartPlan::Request::fromJson(const QJsonObject& object)
{
    const QJsonValue full = object.value(QStringLiteral("isFull"));
    if (!full.isBool() && !full.isUndefined())
        return false;
    m_full = full.toBool();
    return PlanIdRequest::fromJson(object);
}

QJsonObject GetPlanList::Request::toJson() const
{
    QJsonObject object{{QStringLiteral("profile"), m_profile}};
    if (m_withoutPlanXml)
        object.insert(QStringLiteral("withoutPlanXml"), true);
    if (!m_planId.isNull())
        object.insert(QStringLiteral("planId"), m_planId.toString(QUuid::WithoutBraces));
    return object;
}

bool GetPlanList::Request::fromJson(const QJsonObject& object)
{
    const QJsonValue profile = object.value(QStringLiteral("profile"));
    if (!profile.isString() && !profile.isUndefined())
        return false;
    m_profile = profile.toString();
    m_withoutPlanXml = object.value(QStringLiteral("withoutPlanXml")).toBool();
    m_planId = QUuid::fromString(object.value(QStringLiteral("planId")).toString());
    return true;
}

QJsonObject GetPlanList::Response::toJson() const
{
    QJsonObject object{{QStringLiteral("planList"), m_plans}};
    if (!m_damaged.isEmpty())
        object.insert(QStringLiteral("damaged"), m_damaged);
    return object;
}

bool GetPlanList::Response::fromJson(const QJsonObject& object)
{
    const QJsonValue plans = object.value(QStringLiteral("planList"));
    if (!plans.isArray())
        return false;
    m_plans = plans.toArray();
    m_damaged = object.value(QStringLiteral("damaged")).toArray();
    return true;
}

} // namespace Orv::Common::Communication::V2::Plan
