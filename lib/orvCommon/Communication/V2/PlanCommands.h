#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QJsonArray>

namespace Orv::Common::Communication::V2::Plan {

// The plans of a profile, each a row with the members named in
// Commands::Format::Plan::DataType::Info.
class GetPlanList
{
public:
    static const QUuid CommandId;

    class Request : public Command::Request
    {
    public:
        void setProfile(const QString& profile) { m_profile = profile; }
        QString profile() const { return m_profile; }
        // Rows without their PlanXml: what a listing needs, a fraction of
        // the bytes.
        void setWithoutPlanXml(bool without) { m_withoutPlanXml = without; }
        bool withoutPlanXml() const { return m_withoutPlanXml; }
        // Only the row of this plan (none when there is no such plan).
        void setPlanId(const QUuid& id) { m_planId = id; }
        QUuid planId() const { return m_planId; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QString m_profile;
        bool m_withoutPlanXml = false;
        QUuid m_planId;
    };

    class Response : public Command::Response
    {
    public:
        void setPlanList(const QJsonArray& plans) { m_plans = plans; }
        QJsonArray planList() const { return m_plans; }
        // The plan files the service could not read, each {"File", "Reason"}
        // (Commands::Format::Storage::GetConnection::Reply's members).
        void setDamaged(const QJsonArray& files) { m_damaged = files; }
        QJsonArray damaged() const { return m_damaged; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QJsonArray m_plans;
        QJsonArray m_damaged;
    };

    using Command = TypedCommand<Request, Response>;
};

// The request of the commands that name one plan.
class PlanIdRequest : public Command::Request
{
public:
    void setPlanId(const QUuid& id) { m_planId = id; }
    QUuid planId() const { return m_planId; }
    QJsonObject toJson() const override;
    bool fromJson(const QJsonObject& object) override;

private:
    QUuid m_planId;
};

// A response that carries nothing but the status.
class EmptyResponse : public Command::Response
{
public:
    QJsonObject toJson() const override { return {}; }
    bool fromJson(const QJsonObject&) override { return true; }
};

// Runs a plan now. A plan that runs already is refused (status 3).
class StartPlan
{
public:
    static const QUuid CommandId;

    class Request : public PlanIdRequest
    {
    public:
        // A full backup rather than an increment.
        void setIsFull(bool full) { m_full = full; }
        bool isFull() const { return m_full; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        bool m_full = false;
    };
    using Response = EmptyResponse;
    using Command = TypedCommand<Request, Response>;
};

// Asks the running plan to stop; it ends with its result "Stopped" soon after.
class StopPlan
{
public:
    static const QUuid CommandId;
    using Request = PlanIdRequest;
    using Response = EmptyResponse;
    using Command = TypedCommand<Request, Response>;
};

// Removes a plan (stopping its run first). Its backup data stays in storage.
class RemovePlan
{
public:
    static const QUuid CommandId;
    using Request = PlanIdRequest;
    using Response = EmptyResponse;
    using Command = TypedCommand<Request, Response>;
};

} // namespace Orv::Common::Communication::V2::Plan
