#pragma once

#include "orvRepository/Repository.h"
#include "service/engine/RunDescription.h"

namespace Orv::Engine {

class CurrentStore;

// The plan's settings beside its data (<plan>/plan), so that a machine that
// finds the storage sees which plan wrote what. Its passwords are masked
// before it gets here; with encryption on it is sealed with the plan's keys
// like everything else. A plan that no longer saves itself has the old copy
// removed, so that no stale one is taken for its settings.
Orv::Repository::Status savePlan(CurrentStore& store, const RunDescription& description);
// The saved settings; ObjectNotFound when the plan saved none.
Orv::Repository::Status readSavedPlan(CurrentStore& store, QByteArray* plan);

} // namespace Orv::Engine
