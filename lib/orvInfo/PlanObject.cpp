#include "orvInfo/PlanObject.h"

#include "orvCommon/Communication/Format.h"

#include <QXmlStreamReader>

namespace Orv::Info {

namespace Info = Orv::Common::Communication::Commands::Format::Plan::DataType::Info;

PlanObject PlanObject::fromPlanXml(const QByteArray& xml, QString* error)
{
    QXmlStreamReader reader(xml);
    if (!reader.readNextStartElement()) {
        *error = reader.hasError() ? reader.errorString() : QStringLiteral("empty document");
        return {};
    }
    if (reader.name() != QLatin1String("Plan")) {
        *error = QStringLiteral("the root element is not a plan");
        return {};
    }
    const QXmlStreamAttributes attributes = reader.attributes();
    PlanObject plan;
    plan.m_id = QUuid(attributes.value(QLatin1String(Info::ID)).toString());
    plan.m_name = attributes.value(QLatin1String(Info::Name)).toString();
    plan.m_type = attributes.value(QLatin1String(Info::Type)).toString();
    plan.m_storage = QUuid(attributes.value(QLatin1String(Info::Storage)).toString());
    plan.m_planXml = QString::fromUtf8(xml);
    if (plan.m_id.isNull()) {
        *error = QStringLiteral("the plan has no valid ID");
        return {};
    }
    return plan;
}

PlanObject PlanObject::fromRow(const QJsonObject& row)
{
    PlanObject plan;
    plan.m_id = QUuid(row.value(QLatin1String(Info::ID)).toString());
    plan.m_name = row.value(QLatin1String(Info::Name)).toString();
    plan.m_type = row.value(QLatin1String(Info::Type)).toString();
    plan.m_storage = QUuid(row.value(QLatin1String(Info::Storage)).toString());
    plan.m_planXml = row.value(QLatin1String(Info::PlanXml)).toString();
    plan.m_status = Plan::PlanStatus::fromInt(
        row.value(QLatin1String(RowKey::Status)).toInt(Plan::PlanStatus::Idle));
    plan.m_schedule = row.value(QLatin1String(RowKey::Schedule)).toString();
    plan.m_lastRunTime = QDateTime::fromString(
        row.value(QLatin1String(RowKey::LastRunTime)).toString(), Qt::ISODateWithMs);
    plan.m_lastRunStatus = Plan::PlanResult(
        row.value(QLatin1String(RowKey::LastRunStatus)).toInt(Plan::PlanResult::NeverRun));
    plan.m_lastRunMessage = row.value(QLatin1String(RowKey::LastRunMessage)).toString();
    const auto number = [&row](const char* key) {
        return qint64(row.value(QLatin1String(key)).toDouble());
    };
    plan.m_lastDuration = number(RowKey::LastDuration);
    plan.m_lastFileCount = number(RowKey::LastFileCount);
    plan.m_lastFileSize = number(RowKey::LastFileSize);
    plan.m_lastUploadedCount = number(RowKey::LastUploadedCount);
    plan.m_lastFailedCount = number(RowKey::LastFailedCount);
    plan.m_lastProgressSteps = row.value(QLatin1String(RowKey::LastProgressSteps)).toString();
    return plan;
}

Plan::PlanType PlanObject::type() const
{
    return Plan::PlanType::words().value(m_type).value_or(Plan::PlanType::Backup);
}

QJsonObject PlanObject::toRow() const
{
    // Counts and sizes travel as JSON numbers: exact up to 2^53.
    return {
        {QLatin1String(Info::ID), m_id.toString()},
        {QLatin1String(Info::Name), m_name},
        {QLatin1String(Info::Type), m_type},
        {QLatin1String(Info::Storage), m_storage.isNull() ? QString() : m_storage.toString()},
        {QLatin1String(Info::PlanXml), m_planXml},
        {QLatin1String(RowKey::Status), int(m_status.value())},
        {QLatin1String(RowKey::Schedule), m_schedule},
        {QLatin1String(RowKey::LastRunTime),
         m_lastRunTime.isValid() ? m_lastRunTime.toUTC().toString(Qt::ISODateWithMs) : QString()},
        {QLatin1String(RowKey::LastRunStatus), int(m_lastRunStatus.value())},
        {QLatin1String(RowKey::LastRunMessage), m_lastRunMessage},
        {QLatin1String(RowKey::LastDuration), double(m_lastDuration)},
        {QLatin1String(RowKey::LastFileCount), double(m_lastFileCount)},
        {QLatin1String(RowKey::LastFileSize), double(m_lastFileSize)},
        {QLatin1String(RowKey::LastUploadedCount), double(m_lastUploadedCount)},
        {QLatin1String(RowKey::LastFailedCount), double(m_lastFailedCount)},
        {QLatin1String(RowKey::LastProgressSteps), m_lastProgressSteps},
    };
}

} // namespace Orv::Info
