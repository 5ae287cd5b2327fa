#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QVariantMap>

namespace Orv::Common::Communication::V2::Storage {

// Creates an account, or replaces the one with the same id. params is the
// account configuration (Kel::Cloud::Config keys) with its secrets in clear;
// the service encrypts them before anything reaches the disk.
class SaveStorage
{
public:
    static const QUuid CommandId;

    class Request : public Command::Request
    {
    public:
        void setProfile(const QString& profile) { m_profile = profile; }
        QString profile() const { return m_profile; }
        void setId(const QUuid& id) { m_id = id; }
        QUuid id() const { return m_id; }
        void setDisplayName(const QString& displayName) { m_displayName = displayName; }
        QString displayName() const { return m_displayName; }
        void setPrefix(const QString& prefix) { m_prefix = prefix; }
        QString prefix() const { return m_prefix; }
        void setParams(const QVariantMap& params) { m_params = params; }
        QVariantMap params() const { return m_params; }
        void setType(int type) { m_type = type; }
        int type() const { return m_type; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QString m_profile;
        QUuid m_id;
        QString m_displayName;
        QString m_prefix;
        QVariantMap m_params;
        int m_type = 0;
    };

    // Nothing but the status.
    class Response : public Command::Response
    {
    public:
        QJsonObject toJson() const override { return {}; }
        bool fromJson(const QJsonObject&) override { return true; }
    };

    using Command = TypedCommand<Request, Response>;
};

} // namespace Orv::Common::Communication::V2::Storage
