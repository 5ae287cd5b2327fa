#include "orvCommon/Communication/V2/RepositoryCommands.h"

namespace Orv::Common::Communication::V2::Repository {

const QUuid GetBunchList::CommandId(QStringLiteral("{3e8a1c52-7b4d-4f0e-9a61-2c5d8e7f1b03}"));
const QUuid GetGenerationList::CommandId(QStringLiteral("{a61f0d2e-5c3b-4a87-b9e4-7d1c2f6a8e15}"));
const QUuid
    GetRestorePointList::CommandId(QStringLiteral("{58c2e7a9-1f4d-4b3e-8a06-c9d3b5e2f471}"));
const QUuid
    GetBunchRestorePointList::CommandId(QStringLiteral("{c4d9a2f1-6e8b-4c57-a3d0-1b7e9f5c2a68}"));
const QUuid GetContent::CommandId(QStringLiteral("{7f3b9e5d-2a1c-4d68-b4f7-e0a2c8d6b139}"));
const QUuid
    GetRestorePointPaths::CommandId(QStringLiteral("{e2a7c4b8-9d1f-4e36-a5c0-6f8b3d2e9a74}"));
const QUuid StartDeepSync::CommandId(QStringLiteral("{19b6d3f7-4c8e-4a2d-9e51-b7a0c6f3d8e2}"));
const QUuid RemoveDataBunch::CommandId(QStringLiteral("{6d0e8b3a-f27c-4951-8b6d-a4e1c9f7b205}"));
const QUuid
    RemoveDataGeneration::CommandId(QStringLiteral("{b8f4a1e6-3d9c-4f72-a0b5-5e2d7c1f9a83}"));

QJsonObject RepositoryRequest::toJson() const
{
    QJsonObject object{
        {QStringLiteral("connectionId"), m_connectionId.toString(QUuid::WithoutBraces)},
        {QStringLiteral("bunchId"), m_bunchId},
        {QStringLiteral("generationId"), m_generationId},
        {QStringLiteral("restorePointId"), m_pointId},
        {QStringLiteral("path"), m_path},
        {QStringLiteral("limit"), m_limit},
        {QStringLiteral("offset"), m_offset},
        {QStringLiteral("paths"), QJsonArray::fromStringList(m_paths)}};
    if (m_pointTime.isValid())
        object.insert(QStringLiteral("restorePointTime"),
                      m_pointTime.toUTC().toString(Qt::ISODateWithMs));
    if (!m_password.isEmpty())
        object.insert(QStringLiteral("password"), m_password);
    return object;
}

bool RepositoryRequest::fromJson(const QJsonObject& object)
{
    m_connectionId = QUuid::fromString(object.value(QStringLiteral("connectionId")).toString());
    m_bunchId = object.value(QStringLiteral("bunchId")).toString();
    m_generationId = object.value(QStringLiteral("generationId")).toString();
    m_pointId = object.value(QStringLiteral("restorePointId")).toString();
    m_pointTime = QDateTime::fromString(object.value(QStringLiteral("restorePointTime")).toString(),
                                        Qt::ISODateWithMs);
    m_path = object.value(QStringLiteral("path")).toString();
    m_limit = object.value(QStringLiteral("limit")).toInt();
    m_offset = object.value(QStringLiteral("offset")).toInt();
    m_paths.clear();
    for (const QJsonValue& path : object.value(QStringLiteral("paths")).toArray())
        m_paths.append(path.toString());
    m_password = object.value(QStringLiteral("password")).toString();
    return !m_connectionId.isNull() && m_limit >= 0 && m_offset >= 0;
}

QJsonObject ListResponse::toJson() const
{
    return {{QStringLiteral("items"), m_items},
            {QStringLiteral("offset"), m_offset},
            {QStringLiteral("hasMore"), m_more}};
}

bool ListResponse::fromJson(const QJsonObject& object)
{
    const QJsonValue items = object.value(QStringLiteral("items"));
    if (!items.isArray())
        return false;
    m_items = items.toArray();
    m_offset = object.value(QStringLiteral("offset")).toInt();
    m_more = object.value(QStringLiteral("hasMore")).toBool();
    return true;
}

} // namespace Orv::Common::Communication::V2::Repository
