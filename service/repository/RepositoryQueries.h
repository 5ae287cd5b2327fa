#pragma once

#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvInfo/Repository/Objects.h"
#include "orvRepository/PointBrowser.h"
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

// Shared by the answers of both formats.

// Ids become object names and the names of cache files: nothing that could
// reach outside the bunch's own folder (or name the whole prefix) is taken.
bool isPlainId(const QString& id);
QString storageError(const Orv::Repository::Status& status);
// The restore point the request names: by id, else the first one that
// started within the minute of its time, else the newest. Only the request's
// generation is searched when it names one.
QString choosePoint(const QList<Orv::Repository::GenerationInfo>& generations,
                    const Request& request, Orv::Repository::PointInfo* point);
QByteArray encodedPath(const QString& path);
Orv::Info::Repository::ContentObject contentObject(const Orv::Repository::ContentEntry& entry);
TypedOutcome listed(const QJsonArray& items, int offset = 0, bool more = false);
TypedOutcome doneOrFailed(const QString& error);

} // namespace Orv::Service::RepositoryQueries
