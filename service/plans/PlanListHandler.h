#pragma once

#include "service/channel/EncodedJson.h"

namespace Orv::Service {

class HandlerRegistry;
class PlanCatalog;

// The plan list, as the named command "PlanGetList" and as the typed
// GetPlanList: the same rows either way. Monitoring tools ask for it all the
// time, so both answers are kept encoded until a plan file changes.
class PlanListHandler
{
public:
    // The catalog must outlive this handler, and this handler the registry.
    explicit PlanListHandler(PlanCatalog& catalog) : m_catalog(catalog) {}
    PlanListHandler(const PlanListHandler&) = delete;
    PlanListHandler& operator=(const PlanListHandler&) = delete;

    void install(HandlerRegistry& registry);

private:
    void refresh();

    PlanCatalog& m_catalog;
    quint64 m_generation = 0;
    EncodedJson m_namedData;
    EncodedJson m_typedResponse;
};

} // namespace Orv::Service
