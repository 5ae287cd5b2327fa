#pragma once

#include "orvRepository/Repository.h"
#include "service/engine/CurrentBrowser.h"
#include "service/repository/RepositoryQueries.h"

namespace Orv::Service::CurrentQueries {

using Orv::Repository::Repository;
using RepositoryQueries::Request;

// The repository commands for the current format (cbf), in the objects of the
// new one; the mapping is told beside Orv::Info::Repository::
// kCurrentFormatGeneration. Each returns what RepositoryQueries answers with.

// The plan whose data the bunch of the request is; *found is false when the
// storage holds none of it; the storage's failure otherwise empty.
QString findPlan(const Repository& repository, const QString& bunch,
                 Orv::Engine::CurrentPlanInfo* plan, bool* found);

// The plan as the generation that holds its runs.
Orv::Repository::GenerationInfo generation(const Orv::Engine::CurrentPlanInfo& plan);

// The bunches of every plan in the storage (id and name only).
QString bunches(const Repository& repository, QList<Orv::Repository::BunchInfo>* bunches);

TypedOutcome content(const Repository& repository, const Request& request);
TypedOutcome restorePointPaths(const Repository& repository, const Request& request);
TypedOutcome deepSync(const Repository& repository, const Request& request);
TypedOutcome remove(const Repository& repository, const Request& request);

} // namespace Orv::Service::CurrentQueries
