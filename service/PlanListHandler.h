#pragma once

namespace Orv::Service {

class HandlerRegistry;
class PlanCatalog;

// The plan list, as the named command "PlanGetList" and as the typed
// GetPlanList: the same rows either way.
class PlanListHandler
{
public:
    // The catalog must outlive the registry.
    static void install(HandlerRegistry& registry, PlanCatalog& catalog);
};

} // namespace Orv::Service
