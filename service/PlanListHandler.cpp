#include "service/PlanListHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "service/HandlerRegistry.h"
#include "service/PlanCatalog.h"

namespace Orv::Service {

namespace GetList = Orv::Common::Communication::Commands::Format::Plan::GetList;
using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;

void PlanListHandler::install(HandlerRegistry& registry, PlanCatalog& catalog)
{
    // The profile a client names is not used: an instance has one set of plans.
    registry.addNamed(
        QLatin1String(GetList::Name), [&catalog](const QJsonObject&, const RequestContext&) {
            return NamedOutcome::success({{QLatin1String(GetList::Reply::Key), catalog.rows()}});
        });
    registry.addTyped<GetPlanList>([&catalog](const GetPlanList::Request&, const RequestContext&) {
        auto response = QSharedPointer<GetPlanList::Response>::create();
        response->setPlanList(catalog.rows());
        return TypedOutcome::done(response);
    });
}

} // namespace Orv::Service
