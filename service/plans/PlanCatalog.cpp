#include "service/plans/PlanCatalog.h"

#include "orvInfo/PlanObject.h"

namespace Orv::Service {

namespace {

std::optional<QJsonObject> planRow(const QByteArray& contents, QString* error)
{
    const Orv::Info::PlanObject plan = Orv::Info::PlanObject::fromPlanXml(contents, error);
    if (!plan.isValid())
        return std::nullopt;
    return plan.toRow();
}

} // namespace

PlanCatalog::PlanCatalog(const QString& folder) : m_folder(folder, QStringLiteral(".xml"), &planRow)
{
}

} // namespace Orv::Service
