#include "service/repository/RepositoryQueries.h"

#include "orvInfo/Repository/Objects.h"
#include "orvRepository/Generation.h"
#include "orvRepository/PointBrowser.h"
#include "service/repository/CurrentQueries.h"

#include <QDir>
#include <QFile>
#include <algorithm>

namespace Orv::Service::RepositoryQueries {

namespace {

namespace Engine = Orv::Repository;
namespace Info = Orv::Info::Repository;
namespace Commands = Orv::Common::Communication::V2::Repository;
using Kel::Cloud::Operation;

QString noBunch(const QString& bunch)
{
    return QStringLiteral("Bunch %1 does not exist in the storage account.").arg(bunch);
}

QString noGeneration(const Request& request)
{
    return QStringLiteral("Generation %1 does not exist in bunch %2.")
        .arg(request.generationId(), request.bunchId());
}

// Empty when the object is in the storage, missing when it is not, or why the
// storage cannot say.
QString findObject(const Repository& repository, const QString& name, const QString& missing)
{
    Engine::Status status;
    const std::unique_ptr<Kel::Cloud::Backend> backend = repository.location().backend(&status);
    if (!backend)
        return storageError(status);
    Kel::Cloud::ObjectInfo info;
    status = backend->stat(name, &info);
    if (status.error == Operation::Error::ObjectNotFound)
        return missing;
    return status.ok() ? QString() : storageError(status);
}

QString findBunch(const Repository& repository, const Request& request)
{
    const QString& bunch = request.bunchId();
    if (!isPlainId(bunch))
        return noBunch(bunch);
    return findObject(repository, repository.layout().bunchRecord(bunch), noBunch(bunch));
}

// The generations of the request's bunch that hold restore points.
QString loadGenerations(const Repository& repository, const Request& request,
                        QList<Engine::GenerationInfo>* generations)
{
    const QString error = findBunch(repository, request);
    if (!error.isEmpty())
        return error;
    const Engine::Status status = repository.generations(request.bunchId(), generations);
    return status.ok() ? QString() : storageError(status);
}

// The generations of both formats that the bunch holds: the new format's,
// then the one of the current format's runs.
QString loadAllGenerations(const Repository& repository, const Request& request,
                           QList<Engine::GenerationInfo>* generations)
{
    const QString error = loadGenerations(repository, request, generations);
    if (!error.isEmpty() && error != noBunch(request.bunchId()))
        return error;
    Orv::Engine::CurrentPlanInfo plan;
    bool found = false;
    const QString current = CurrentQueries::findPlan(repository, request.bunchId(), &plan, &found);
    if (!current.isEmpty())
        return current;
    if (!found)
        return error;
    generations->append(CurrentQueries::generation(plan));
    return {};
}

// Whether the request is for the current format's data: its generation, or
// a bunch that has no data of the new format.
bool forCurrentFormat(const Repository& repository, const Request& request)
{
    if (request.generationId() == Info::kCurrentFormatGeneration)
        return true;
    return request.generationId().isEmpty() &&
           findBunch(repository, request) == noBunch(request.bunchId());
}

QString findGeneration(const Repository& repository, const Request& request,
                       Engine::GenerationInfo* generation)
{
    QList<Engine::GenerationInfo> generations;
    const QString error = loadAllGenerations(repository, request, &generations);
    if (!error.isEmpty())
        return error;
    for (const Engine::GenerationInfo& candidate : qAsConst(generations)) {
        if (candidate.id == request.generationId()) {
            *generation = candidate;
            return {};
        }
    }
    return noGeneration(request);
}

bool sameMinute(const QDateTime& a, const QDateTime& b)
{
    return a.toSecsSinceEpoch() / 60 == b.toSecsSinceEpoch() / 60;
}

// Opens the generation of the restore point the request names. One whose
// local data must be rebuilt first is refused: opening it would quietly do
// the whole deep sync inside a listing.
QString openPoint(const Repository& repository, const Request& request,
                  std::unique_ptr<Engine::Generation>* generation,
                  const Kel::Archive::PointRecord** point)
{
    QList<Engine::GenerationInfo> generations;
    QString error = loadGenerations(repository, request, &generations);
    Engine::PointInfo chosen;
    if (error.isEmpty())
        error = choosePoint(generations, request, &chosen);
    if (!error.isEmpty())
        return error;
    if (chosen.needsDeepSync)
        return QStringLiteral("Generation %1 needs a deep sync before its content can be read; "
                              "run a deep sync of it first.")
            .arg(chosen.generation);
    const Engine::Status status = Engine::Generation::open(
        repository, request.bunchId(), chosen.generation, request.password().toUtf8(), generation);
    if (!status.ok())
        return storageError(status);
    *point = (*generation)->point(chosen.id);
    if (!*point)
        return QStringLiteral("Restore point %1 does not exist in generation %2.")
            .arg(chosen.id, chosen.generation);
    return {};
}

Info::Generation generationObject(const Engine::GenerationInfo& generation)
{
    Info::Generation object;
    object.setId(generation.id);
    object.setFirstRestorePoint(generation.firstPoint);
    object.setLastRestorePoint(generation.lastPoint);
    object.setWarningCount(generation.warningCount);
    object.setErrorCount(generation.errorCount);
    object.setDeepSync(generation.needsDeepSync);
    object.setEncrypted(generation.encrypted);
    object.setHint(generation.hint);
    return object;
}

Info::RestorePoint pointObject(const Engine::PointInfo& point)
{
    Info::RestorePoint object;
    object.setId(point.id);
    object.setGenerationId(point.generation);
    object.setBackupType(Info::RestorePoint::BackupType(int(point.type)));
    object.setStartDate(point.start);
    object.setEndDate(point.end);
    object.setStatus(Info::RestorePoint::Status(int(point.status)));
    object.setDeepSync(point.needsDeepSync);
    object.setEncrypted(point.encrypted);
    return object;
}

} // namespace

bool isPlainId(const QString& id)
{
    return !id.isEmpty() && id != QLatin1String(".") && id != QLatin1String("..") &&
           !id.contains(QLatin1Char('/')) && !id.contains(QLatin1Char('\\'));
}

QString storageError(const Engine::Status& status)
{
    return status.message.isEmpty() ? QStringLiteral("The storage cannot be read.")
                                    : status.message;
}

QString choosePoint(const QList<Engine::GenerationInfo>& generations, const Request& request,
                    Engine::PointInfo* point)
{
    QList<Engine::PointInfo> candidates;
    bool generationFound = request.generationId().isEmpty();
    for (const Engine::GenerationInfo& generation : generations) {
        if (!request.generationId().isEmpty() && generation.id != request.generationId())
            continue;
        generationFound = true;
        candidates.append(generation.points);
    }
    if (!generationFound)
        return noGeneration(request);
    const QString scope = request.generationId().isEmpty()
                              ? QStringLiteral("bunch %1").arg(request.bunchId())
                              : QStringLiteral("generation %1").arg(request.generationId());
    const Engine::PointInfo* found = nullptr;
    for (const Engine::PointInfo& candidate : qAsConst(candidates)) {
        const bool matches = request.restorePointId().isEmpty()
                                 ? request.restorePointTime().isValid() &&
                                       sameMinute(candidate.start, request.restorePointTime())
                                 : candidate.id == request.restorePointId();
        if (matches) {
            found = &candidate;
            break;
        }
    }
    if (request.restorePointId().isEmpty() && !request.restorePointTime().isValid() &&
        !candidates.isEmpty())
        found = &candidates.constLast();
    if (found) {
        *point = *found;
        return {};
    }
    if (!request.restorePointId().isEmpty())
        return QStringLiteral("Restore point %1 does not exist in %2.")
            .arg(request.restorePointId(), scope);
    if (request.restorePointTime().isValid())
        return QStringLiteral("No restore point of %1 started at %2.")
            .arg(scope, request.restorePointTime().toLocalTime().toString(
                            QStringLiteral("dd.MM.yyyy hh:mm")));
    return QStringLiteral("There is no restore point in %1.").arg(scope);
}

QByteArray encodedPath(const QString& path)
{
    return QFile::encodeName(QDir::cleanPath(path));
}

Info::ContentObject contentObject(const Engine::ContentEntry& entry)
{
    Info::ContentObject object;
    object.setTypeName(Engine::typeName(entry.node.type));
    object.setPath(QFile::decodeName(entry.path));
    object.setSize(qint64(entry.node.size));
    object.setModified(QDateTime::fromMSecsSinceEpoch(entry.node.mtimeNs / 1000000));
    return object;
}

TypedOutcome listed(const QJsonArray& items, int offset, bool more)
{
    Commands::ListResponse response;
    response.setItems(items);
    response.setOffset(offset);
    response.setHasMore(more);
    return TypedOutcome::done(response);
}

TypedOutcome doneOrFailed(const QString& error)
{
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    return TypedOutcome::done(Commands::DoneResponse());
}

TypedOutcome bunchList(const Repository& repository, const Request&)
{
    QList<Engine::BunchInfo> bunches;
    const Engine::Status status = repository.bunches(&bunches);
    if (!status.ok())
        return TypedOutcome::failed(storageError(status));
    // A plan that wrote both formats is one bunch.
    QList<Engine::BunchInfo> current;
    const QString error = CurrentQueries::bunches(repository, &current);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    for (const Engine::BunchInfo& bunch : qAsConst(current)) {
        if (std::none_of(bunches.cbegin(), bunches.cend(),
                         [&](const Engine::BunchInfo& other) { return other.id == bunch.id; }))
            bunches.append(bunch);
    }
    std::stable_sort(
        bunches.begin(), bunches.end(),
        [](const Engine::BunchInfo& a, const Engine::BunchInfo& b) { return a.name < b.name; });
    QJsonArray items;
    for (const Engine::BunchInfo& bunch : qAsConst(bunches)) {
        Info::Bunch object;
        object.setId(bunch.id);
        object.setDisplayName(bunch.name);
        items.append(object.toJson());
    }
    return listed(items);
}

TypedOutcome generationList(const Repository& repository, const Request& request)
{
    QList<Engine::GenerationInfo> generations;
    const QString error = loadAllGenerations(repository, request, &generations);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    QJsonArray items;
    for (const Engine::GenerationInfo& generation : qAsConst(generations))
        items.append(generationObject(generation).toJson());
    return listed(items);
}

TypedOutcome restorePointList(const Repository& repository, const Request& request)
{
    Engine::GenerationInfo generation;
    const QString error = findGeneration(repository, request, &generation);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    QJsonArray items;
    for (const Engine::PointInfo& point : qAsConst(generation.points))
        items.append(pointObject(point).toJson());
    return listed(items);
}

TypedOutcome bunchRestorePointList(const Repository& repository, const Request& request)
{
    QList<Engine::GenerationInfo> generations;
    const QString error = loadAllGenerations(repository, request, &generations);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    QList<Engine::PointInfo> points;
    for (const Engine::GenerationInfo& generation : qAsConst(generations))
        points.append(generation.points);
    std::stable_sort(
        points.begin(), points.end(),
        [](const Engine::PointInfo& a, const Engine::PointInfo& b) { return a.start < b.start; });
    QJsonArray items;
    for (const Engine::PointInfo& point : qAsConst(points))
        items.append(pointObject(point).toJson());
    return listed(items);
}

TypedOutcome content(const Repository& repository, const Request& request)
{
    if (forCurrentFormat(repository, request))
        return CurrentQueries::content(repository, request);
    std::unique_ptr<Engine::Generation> generation;
    const Kel::Archive::PointRecord* point = nullptr;
    const QString error = openPoint(repository, request, &generation, &point);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    Engine::PointBrowser browser(*generation, *point);
    const int limit = request.limit() > 0 ? std::min(request.limit(), kMaxPage) : kMaxPage;
    QList<Engine::ContentEntry> entries;
    int next = -1;
    const Engine::Status status =
        browser.list(encodedPath(request.path()), request.offset(), limit, &entries, &next);
    if (!status.ok())
        return TypedOutcome::failed(storageError(status));
    QJsonArray items;
    for (const Engine::ContentEntry& entry : qAsConst(entries))
        items.append(contentObject(entry).toJson());
    return listed(items, next >= 0 ? next : request.offset() + entries.size(), next >= 0);
}

TypedOutcome restorePointPaths(const Repository& repository, const Request& request)
{
    if (forCurrentFormat(repository, request))
        return CurrentQueries::restorePointPaths(repository, request);
    std::unique_ptr<Engine::Generation> generation;
    const Kel::Archive::PointRecord* point = nullptr;
    const QString error = openPoint(repository, request, &generation, &point);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    QList<QByteArray> paths;
    for (const QString& path : request.paths())
        paths.append(encodedPath(path));
    QList<bool> found;
    const Engine::Status status = Engine::PointBrowser(*generation, *point).exists(paths, &found);
    if (!status.ok())
        return TypedOutcome::failed(storageError(status));
    QJsonArray items;
    for (int i = 0; i < found.size(); ++i) {
        if (found.at(i))
            items.append(request.paths().at(i));
    }
    return listed(items);
}

TypedOutcome deepSync(const Repository& repository, const Request& request)
{
    if (request.generationId() == Info::kCurrentFormatGeneration)
        return CurrentQueries::deepSync(repository, request);
    Engine::GenerationInfo generation;
    QString error = findGeneration(repository, request, &generation);
    if (error.isEmpty() && generation.encrypted && request.password().isEmpty())
        error = QStringLiteral("Generation %1 is encrypted: its password is needed for a deep "
                               "sync.")
                    .arg(generation.id);
    if (!error.isEmpty())
        return TypedOutcome::failed(error);
    const Engine::Status status =
        repository.deepSync(request.bunchId(), generation.id, request.password().toUtf8());
    return doneOrFailed(status.ok() ? QString() : storageError(status));
}

TypedOutcome removeBunch(const Repository& repository, const Request& request)
{
    Orv::Engine::CurrentPlanInfo plan;
    bool current = false;
    QString error = CurrentQueries::findPlan(repository, request.bunchId(), &plan, &current);
    if (!error.isEmpty())
        return doneOrFailed(error);
    error = findBunch(repository, request);
    if (error == noBunch(request.bunchId()) && current)
        return CurrentQueries::remove(repository, request);
    if (error.isEmpty()) {
        const Engine::Status status = repository.removeBunch(request.bunchId());
        error = status.ok() ? QString() : storageError(status);
    }
    if (error.isEmpty() && current)
        return CurrentQueries::remove(repository, request);
    return doneOrFailed(error);
}

TypedOutcome removeGeneration(const Repository& repository, const Request& request)
{
    if (request.generationId() == Info::kCurrentFormatGeneration)
        return CurrentQueries::remove(repository, request);
    QString error = findBunch(repository, request);
    if (error.isEmpty() && !isPlainId(request.generationId()))
        error = noGeneration(request);
    // A generation whose first run never finished has a record but no
    // restore point, and is still removable.
    if (error.isEmpty())
        error = findObject(
            repository,
            repository.layout().generationRecord(request.bunchId(), request.generationId()),
            noGeneration(request));
    if (error.isEmpty()) {
        const Engine::Status status =
            repository.removeGeneration(request.bunchId(), request.generationId());
        error = status.ok() ? QString() : storageError(status);
    }
    return doneOrFailed(error);
}

} // namespace Orv::Service::RepositoryQueries
