#include "service/plans/PlanListHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "service/channel/HandlerRegistry.h"
#include "service/plans/PlanCatalog.h"

namespace Orv::Service {

namespace GetList = Orv::Common::Communication::Commands::Format::Plan::GetList;
using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;

void PlanListHandler::install(HandlerRegistry& registry)
{
    // The profile a client names is not used: an instance has one set of plans.
    registry.addNamed(QLatin1String(GetList::Name),
                      [this](const QJsonObject&, const RequestContext&) {
                          refresh();
                          return NamedOutcome::success(m_namedData);
                      });
    registry.addTyped<GetPlanList>([this](const GetPlanList::Request&, const RequestContext&) {
        refresh();
        return TypedOutcome::done(m_typedResponse);
    });
}

void PlanListHandler::refresh()
{
    const QJsonArray rows = m_catalog.rows();
    if (m_generation == m_catalog.generation())
        return;
    m_generation = m_catalog.generation();
    m_namedData = EncodedJson({{QLatin1String(GetList::Reply::Key), rows}});
    GetPlanList::Response response;
    response.setPlanList(rows);
    m_typedResponse = EncodedJson(response.toJson());
}

} // namespace Orv::Service
