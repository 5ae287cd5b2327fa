#include "service/repository/CurrentQueries.h"

#include "orvInfo/Repository/Objects.h"

#include <QJsonArray>

namespace Orv::Service::CurrentQueries {

namespace {

namespace Engine = Orv::Repository;
namespace Info = Orv::Info::Repository;
using Orv::Engine::CurrentBrowser;
using Orv::Engine::CurrentPlanInfo;
using RepositoryQueries::storageError;

QString noPlan(const QString& bunch)
{
    return QStringLiteral("Bunch %1 does not exist in the storage account.").arg(bunch);
}

// The plan of the request and its run the request names, as the new
// format chooses a point: by id, else by the minute it started, else the
// newest.
QString findRun(const Repository& repository, const Request& request, QString* run)
{
    CurrentPlanInfo plan;
    bool found = false;
    QString error = findPlan(repository, request.bunchId(), &plan, &found);
    if (error.isEmpty() && !found)
        error = noPlan(request.bunchId());
    if (!error.isEmpty())
        return error;
    Request scoped = request;
    scoped.setGenerationId(Info::kCurrentFormatGeneration);
    Engine::PointInfo point;
    error = RepositoryQueries::choosePoint({generation(plan)}, scoped, &point);
    *run = point.id;
    return error;
}

} // namespace

QString findPlan(const Repository& repository, const QString& bunch, CurrentPlanInfo* plan,
                 bool* found)
{
    *found = false;
    if (!RepositoryQueries::isPlainId(bunch))
        return {};
    const Engine::Status status = CurrentBrowser(repository).plan(bunch, plan, found);
    return status.ok() ? QString() : storageError(status);
}

Engine::GenerationInfo generation(const CurrentPlanInfo& plan)
{
    Engine::GenerationInfo generation;
    generation.id = Info::kCurrentFormatGeneration;
    generation.needsDeepSync = plan.cacheStale;
    generation.encrypted = plan.encrypted;
    generation.hint = plan.hint;
    for (int i = 0; i < plan.runs.size(); ++i) {
        const Kel::Archive::ManifestHeader& run = plan.runs.at(i);
        Engine::PointInfo point;
        point.id = run.run;
        point.generation = generation.id;
        // Runs written before the flag was kept: only the first stored all.
        point.type = run.full || i == 0 ? Kel::Archive::BackupType::Full
                                        : Kel::Archive::BackupType::Incremental;
        point.start = run.start;
        point.end = run.end;
        point.status = run.status;
        point.warnings = run.warnings;
        point.errors = run.errors;
        // A run is read from its manifest alone: the cache is the backups'.
        point.needsDeepSync = false;
        point.encrypted = plan.encrypted;
        generation.warningCount += run.warnings;
        generation.errorCount += run.errors;
        generation.points.append(point);
    }
    if (!generation.points.isEmpty()) {
        generation.firstPoint = generation.points.constFirst().start;
        generation.lastPoint = generation.points.constLast().start;
    }
    return generation;
}

QString bunches(const Repository& repository, QList<Engine::BunchInfo>* bunches)
{
    QList<CurrentPlanInfo> plans;
    const Engine::Status status = CurrentBrowser(repository).plans(&plans, true);
    if (!status.ok())
        return storageError(status);
    for (const CurrentPlanInfo& plan : qAsConst(plans))
        bunches->append({plan.plan, plan.name});
    return {};
}

TypedOutcome content(const Repository& repository, const Request& request)
{
    QString run;
    const QString error = findRun(repository, request, &run);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    const int limit = request.limit() > 0 ? std::min(request.limit(), RepositoryQueries::kMaxPage)
                                          : RepositoryQueries::kMaxPage;
    QList<Kel::Archive::ManifestEntry> entries;
    int next = -1;
    const Engine::Status status = CurrentBrowser(repository)
                                      .list(request.bunchId(), run, request.password().toUtf8(),
                                            RepositoryQueries::encodedPath(request.path()),
                                            request.offset(), limit, &entries, &next);
    if (!status.ok())
        return TypedOutcome::failed(storageError(status));
    QJsonArray items;
    for (const Kel::Archive::ManifestEntry& entry : qAsConst(entries))
        items.append(RepositoryQueries::contentObject({entry.path, entry.node}).toJson());
    return RepositoryQueries::listed(items, next >= 0 ? next : request.offset() + entries.size(),
                                     next >= 0);
}

TypedOutcome restorePointPaths(const Repository& repository, const Request& request)
{
    QString run;
    const QString error = findRun(repository, request, &run);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    QList<QByteArray> paths;
    for (const QString& path : request.paths())
        paths.append(RepositoryQueries::encodedPath(path));
    QList<bool> found;
    const Engine::Status status =
        CurrentBrowser(repository)
            .exists(request.bunchId(), run, request.password().toUtf8(), paths, &found);
    if (!status.ok())
        return TypedOutcome::failed(storageError(status));
    QJsonArray items;
    for (int i = 0; i < found.size(); ++i) {
        if (found.at(i))
            items.append(request.paths().at(i));
    }
    return RepositoryQueries::listed(items);
}

TypedOutcome deepSync(const Repository& repository, const Request& request)
{
    CurrentPlanInfo plan;
    bool found = false;
    QString error = findPlan(repository, request.bunchId(), &plan, &found);
    if (error.isEmpty() && !found)
        error = noPlan(request.bunchId());
    if (error.isEmpty() && plan.encrypted && request.password().isEmpty())
        error = QStringLiteral("The data of bunch %1 is encrypted: its password is needed for a "
                               "deep sync.")
                    .arg(request.bunchId());
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    const Engine::Status status =
        CurrentBrowser(repository).deepSync(request.bunchId(), request.password().toUtf8());
    return RepositoryQueries::doneOrFailed(status.ok() ? QString() : storageError(status));
}

TypedOutcome remove(const Repository& repository, const Request& request)
{
    CurrentPlanInfo plan;
    bool found = false;
    QString error = findPlan(repository, request.bunchId(), &plan, &found);
    if (error.isEmpty() && !found)
        error = noPlan(request.bunchId());
    if (error.isEmpty()) {
        const Engine::Status status = CurrentBrowser(repository).remove(request.bunchId());
        error = status.ok() ? QString() : storageError(status);
    }
    return RepositoryQueries::doneOrFailed(error);
}

} // namespace Orv::Service::CurrentQueries
