#include "orvCommon/Communication/V2/SaveStorage.h"

#include <QJsonObject>

namespace Orv::Common::Communication::V2::Storage {

namespace {
const QString kProfile = QStringLiteral("profile");
const QString kId = QStringLiteral("id");
const QString kDisplayName = QStringLiteral("displayName");
const QString kPrefix = QStringLiteral("prefix");
const QString kParams = QStringLiteral("params");
const QString kType = QStringLiteral("type");
} // namespace

const QUuid SaveStorage::CommandId(QStringLiteral("{5e6af84f-d249-4750-9784-38f1d181cbce}"));

QJsonObject SaveStorage::Request::toJson() const
{
    return {{kProfile, m_profile},
            {kId, m_id.toString()},
            {kDisplayName, m_displayName},
            {kPrefix, m_prefix},
            {kParams, QJsonObject::fromVariantMap(m_params)},
            {kType, m_type}};
}

bool SaveStorage::Request::fromJson(const QJsonObject& object)
{
    const QJsonValue id = object.value(kId);
    const QJsonValue params = object.value(kParams);
    const QJsonValue type = object.value(kType);
    if (!id.isString() || !params.isObject() || !type.isDouble())
        return false;
    for (const QString& key : {kProfile, kDisplayName, kPrefix}) {
        const QJsonValue value = object.value(key);
        if (!value.isString() && !value.isUndefined())
            return false;
    }
    m_id = QUuid(id.toString());
    if (m_id.isNull())
        return false;
    m_profile = object.value(kProfile).toString();
    m_displayName = object.value(kDisplayName).toString();
    m_prefix = object.value(kPrefix).toString();
    m_params = params.toObject().toVariantMap();
    m_type = type.toInt();
    return true;
}

} // namespace Orv::Common::Communication::V2::Storage
