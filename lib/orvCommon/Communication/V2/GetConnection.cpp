#include "orvCommon/Communication/V2/GetConnection.h"

namespace Orv::Common::Communication::V2 {

namespace {
const QString kId = QStringLiteral("id");
const QString kWithSecrets = QStringLiteral("withSecrets");
const QString kConnections = QStringLiteral("connections");
} // namespace

const QUuid GetConnection::CommandId(QStringLiteral("{16df17c3-e599-4d8d-94e0-f550899ea55a}"));

QJsonObject GetConnection::Request::toJson() const
{
    QJsonObject object{{kWithSecrets, m_withSecrets}};
    if (!m_id.isNull())
        object.insert(kId, m_id.toString());
    return object;
}

bool GetConnection::Request::fromJson(const QJsonObject& object)
{
    const QJsonValue id = object.value(kId);
    const QJsonValue withSecrets = object.value(kWithSecrets);
    if ((!id.isString() && !id.isUndefined()) ||
        (!withSecrets.isBool() && !withSecrets.isUndefined()))
        return false;
    m_id = QUuid(id.toString());
    if (id.isString() && m_id.isNull())
        return false;
    m_withSecrets = withSecrets.toBool();
    return true;
}

QJsonObject GetConnection::Response::toJson() const
{
    return {{kConnections, m_connections}};
}

bool GetConnection::Response::fromJson(const QJsonObject& object)
{
    const QJsonValue connections = object.value(kConnections);
    if (!connections.isArray())
        return false;
    m_connections = connections.toArray();
    return true;
}

} // namespace Orv::Common::Communication::V2
