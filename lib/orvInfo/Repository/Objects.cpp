#include "orvInfo/Repository/Objects.h"

#include <QJsonValue>

namespace Orv::Info::Repository {

namespace {

// Times travel as UTC with milliseconds and come back as local time.
QJsonValue time(const QDateTime& value)
{
    return value.isValid() ? QJsonValue(value.toUTC().toString(Qt::ISODateWithMs)) : QJsonValue();
}

QDateTime time(const QJsonValue& value)
{
    return QDateTime::fromString(value.toString(), Qt::ISODateWithMs).toLocalTime();
}

template <typename Enum> Enum enumerated(const QJsonValue& value, int last)
{
    const int number = value.toInt(0);
    return Enum(number < 0 || number > last ? 0 : number);
}

} // namespace

QJsonObject Bunch::toJson() const
{
    return {{QStringLiteral("id"), m_id}, {QStringLiteral("name"), m_name}};
}

bool Bunch::fromJson(const QJsonObject& object)
{
    m_id = object.value(QStringLiteral("id")).toString();
    m_name = object.value(QStringLiteral("name")).toString();
    return !m_id.isEmpty();
}

QJsonObject Generation::toJson() const
{
    return {{QStringLiteral("id"), m_id},
            {QStringLiteral("first"), time(m_first)},
            {QStringLiteral("last"), time(m_last)},
            {QStringLiteral("warnings"), m_warnings},
            {QStringLiteral("errors"), m_errors},
            {QStringLiteral("deepSync"), m_deepSync},
            {QStringLiteral("encrypted"), m_encrypted},
            {QStringLiteral("hint"), QString::fromLatin1(m_hint)}};
}

bool Generation::fromJson(const QJsonObject& object)
{
    m_id = object.value(QStringLiteral("id")).toString();
    m_first = time(object.value(QStringLiteral("first")));
    m_last = time(object.value(QStringLiteral("last")));
    m_warnings = object.value(QStringLiteral("warnings")).toInt();
    m_errors = object.value(QStringLiteral("errors")).toInt();
    m_deepSync = object.value(QStringLiteral("deepSync")).toBool();
    m_encrypted = object.value(QStringLiteral("encrypted")).toBool();
    m_hint = object.value(QStringLiteral("hint")).toString().toLatin1();
    return !m_id.isEmpty();
}

QJsonObject RestorePoint::toJson() const
{
    return {{QStringLiteral("id"), m_id},
            {QStringLiteral("generation"), m_generation},
            {QStringLiteral("type"), int(m_type)},
            {QStringLiteral("start"), time(m_start)},
            {QStringLiteral("end"), time(m_end)},
            {QStringLiteral("status"), int(m_status)},
            {QStringLiteral("deepSync"), m_deepSync},
            {QStringLiteral("encrypted"), m_encrypted}};
}

bool RestorePoint::fromJson(const QJsonObject& object)
{
    m_id = object.value(QStringLiteral("id")).toString();
    m_generation = object.value(QStringLiteral("generation")).toString();
    m_type = enumerated<BackupType>(object.value(QStringLiteral("type")), 2);
    m_start = time(object.value(QStringLiteral("start")));
    m_end = time(object.value(QStringLiteral("end")));
    m_status = enumerated<Status>(object.value(QStringLiteral("status")), 2);
    m_deepSync = object.value(QStringLiteral("deepSync")).toBool();
    m_encrypted = object.value(QStringLiteral("encrypted")).toBool();
    return !m_id.isEmpty();
}

QJsonObject ContentObject::toJson() const
{
    return {{QStringLiteral("type"), m_type},
            {QStringLiteral("path"), m_path},
            {QStringLiteral("size"), double(m_size)},
            {QStringLiteral("modified"), time(m_modified)}};
}

bool ContentObject::fromJson(const QJsonObject& object)
{
    m_type = object.value(QStringLiteral("type")).toString();
    m_path = object.value(QStringLiteral("path")).toString();
    m_size = qint64(object.value(QStringLiteral("size")).toDouble());
    m_modified = time(object.value(QStringLiteral("modified")));
    return !m_path.isEmpty();
}

} // namespace Orv::Info::Repository
