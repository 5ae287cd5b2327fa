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
    return plan;
}

QJsonObject PlanObject::toRow() const
{
    return {
        {QLatin1String(Info::ID), m_id.toString()},
        {QLatin1String(Info::Name), m_name},
        {QLatin1String(Info::Type), m_type},
        {QLatin1String(Info::Storage), m_storage.isNull() ? QString() : m_storage.toString()},
        {QLatin1String(Info::PlanXml), m_planXml},
    };
}

} // namespace Orv::Info
