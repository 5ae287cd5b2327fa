#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QJsonArray>

namespace Orv::Common::Communication::V2 {

// The storage accounts, each a record with the members named in
// Commands::Format::Storage::GetConnection::Reply. Secrets in "DetailParams"
// are masked unless the request asks for them: only the commands that edit an
// account and must check it again need them in clear.
class GetConnection
{
public:
    static const QUuid CommandId;

    class Request : public Command::Request
    {
    public:
        // Null: every account.
        void setId(const QUuid& id) { m_id = id; }
        QUuid id() const { return m_id; }
        void setWithSecrets(bool withSecrets) { m_withSecrets = withSecrets; }
        bool withSecrets() const { return m_withSecrets; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QUuid m_id;
        bool m_withSecrets = false;
    };

    class Response : public Command::Response
    {
    public:
        void setConnections(const QJsonArray& connections) { m_connections = connections; }
        QJsonArray connections() const { return m_connections; }
        QJsonObject toJson() const override;
        bool fromJson(const QJsonObject& object) override;

    private:
        QJsonArray m_connections;
    };

    using Command = TypedCommand<Request, Response>;
};

} // namespace Orv::Common::Communication::V2
