#pragma once

#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvRepository/Repository.h"
#include "service/channel/TypedOutcome.h"

namespace Orv::Service::RepositoryQueries {

using Request = Orv::Common::Communication::V2::Repository::RepositoryRequest;
using Orv::Repository::Repository;

// The work behind each repository command, as it runs on a worker thread:
// everything it needs is in the repository and the request, and every
// failure is a message that names what is missing or wrong.

TypedOutcome bunchList(const Repository& repository, const Request& request);
TypedOutcome generationList(const Repository& repository, const Request& request);
TypedOutcome restorePointList(const Repository& repository, const Request& request);
TypedOutcome bunchRestorePointList(const Repository& repository, const Request& request);
// One page of a folder; a page never holds more than kMaxPage entries, so that
// the answer always fits in one frame (hasMore and the offset say what follows).
TypedOutcome content(const Repository& repository, const Request& request);
TypedOutcome restorePointPaths(const Repository& repository, const Request& request);
TypedOutcome deepSync(const Repository& repository, const Request& request);
TypedOutcome removeBunch(const Repository& repository, const Request& request);
TypedOutcome removeGeneration(const Repository& repository, const Request& request);

inline constexpr int kMaxPage = 2000;

} // namespace Orv::Service::RepositoryQueries
