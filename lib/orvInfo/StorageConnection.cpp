#include "orvInfo/StorageConnection.h"

#include "orvCommon/Communication/Format.h"

namespace Orv::Info::Storage {

namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

namespace {

QString text(const QJsonObject& record, const char* key)
{
    return record.value(QLatin1String(key)).toString();
}

qint64 bytes(const QJsonObject& record, const char* key)
{
    return static_cast<qint64>(record.value(QLatin1String(key)).toDouble());
}

} // namespace

Connection Connection::fromRecord(const QJsonObject& record)
{
    Connection connection;
    connection.m_id = QUuid(text(record, Reply::ID));
    if (connection.m_id.isNull())
        return {};
    connection.m_displayName = text(record, Reply::DisplayName);
    connection.m_type = record.value(QLatin1String(Reply::Type)).toInt();
    connection.m_path = text(record, Reply::Path);
    connection.m_prefix = text(record, Reply::Prefix);
    for (const QJsonValue& prefix : record.value(QLatin1String(Reply::PrefixArray)).toArray())
        if (prefix.isString())
            connection.m_prefixArray.append(prefix.toString());
    connection.m_spaceLimit = bytes(record, Reply::SpaceLimit);
    connection.m_spaceUsed = bytes(record, Reply::SpaceUsed);
    connection.m_detailParams = record.value(QLatin1String(Reply::DetailParams)).toObject();
    connection.m_syncStatus = record.value(QLatin1String(Reply::SyncStatus)).toBool();
    return connection;
}

QJsonObject Connection::toRecord() const
{
    return {{QLatin1String(Reply::DisplayName), m_displayName},
            {QLatin1String(Reply::ID), m_id.toString()},
            {QLatin1String(Reply::Path), m_path},
            {QLatin1String(Reply::Prefix), m_prefix},
            {QLatin1String(Reply::PrefixArray), QJsonArray::fromStringList(m_prefixArray)},
            {QLatin1String(Reply::Type), m_type},
            {QLatin1String(Reply::SpaceLimit), static_cast<double>(m_spaceLimit)},
            {QLatin1String(Reply::SpaceUsed), static_cast<double>(m_spaceUsed)},
            {QLatin1String(Reply::DetailParams), m_detailParams},
            {QLatin1String(Reply::SyncStatus), m_syncStatus}};
}

} // namespace Orv::Info::Storage
