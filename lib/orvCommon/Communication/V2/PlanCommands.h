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
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QString m_profile;
    };

    class Response : public Command::Response
    {
    public:
        void setPlanList(const QJsonArray& plans) { m_plans = plans; }
        QJsonArray planList() const { return m_plans; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QJsonArray m_plans;
    };

    using Command = TypedCommand<Request, Response>;
};

} // namespace Orv::Common::Communication::V2::Plan
