#include "service/repository/RepositoryHandler.h"

#include "orvCommon/BackendConfig.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/channel/HandlerRegistry.h"
#include "service/plans/PlanCatalog.h"
#include "service/repository/RepositoryQueries.h"

#include <QDir>

namespace Orv::Service {

namespace {

namespace Commands = Orv::Common::Communication::V2::Repository;
namespace Queries = RepositoryQueries;

// Listings wait on the network, not on the processor: a few run side by side.
constexpr int kWorkers = 4;

QString changeKey(const RepositoryHandler::Request& request)
{
    return request.connectionId().toString(QUuid::WithoutBraces) + QLatin1Char('/') +
           request.bunchId();
}

} // namespace

RepositoryHandler::RepositoryHandler(AccountCatalog& accounts, PlanCatalog& plans,
                                     const QString& cacheRoot, PlanRunning planRunning,
                                     QObject* parent)
    : QObject(parent), m_accounts(accounts), m_plans(plans), m_cacheRoot(cacheRoot),
      m_planRunning(std::move(planRunning))
{
    m_pool.setMaxThreadCount(kWorkers);
}

RepositoryHandler::~RepositoryHandler()
{
    m_pool.waitForDone();
}

void RepositoryHandler::install(HandlerRegistry& registry)
{
    add<Commands::GetBunchList>(registry, Kind::List, &Queries::bunchList);
    add<Commands::GetGenerationList>(registry, Kind::List, &Queries::generationList);
    add<Commands::GetRestorePointList>(registry, Kind::List, &Queries::restorePointList);
    add<Commands::GetBunchRestorePointList>(registry, Kind::List, &Queries::bunchRestorePointList);
    add<Commands::GetContent>(registry, Kind::Browse, &Queries::content);
    add<Commands::GetRestorePointPaths>(registry, Kind::Browse, &Queries::restorePointPaths);
    add<Commands::StartDeepSync>(registry, Kind::Change, &Queries::deepSync);
    add<Commands::RemoveDataBunch>(registry, Kind::Change, &Queries::removeBunch);
    add<Commands::RemoveDataGeneration>(registry, Kind::Change, &Queries::removeGeneration);
}

template <typename Definition>
void RepositoryHandler::add(HandlerRegistry& registry, Kind kind, Work work)
{
    registry.addTypedAsync<Definition>(
        [this, kind, work = std::move(work)](const Request& request, const RequestContext&,
                                             const TypedResponder& responder) {
            handle(request, kind, work, responder);
        });
}

void RepositoryHandler::handle(const Request& request, Kind kind, const Work& work,
                               const TypedResponder& responder)
{
    Orv::Repository::Location location;
    QString error;
    if (!makeLocation(request.connectionId(), &location, &error)) {
        responder.failed(error);
        return;
    }
    error = refusal(request, kind);
    if (!error.isEmpty()) {
        responder.failed(error);
        return;
    }
    Request unlocked = request;
    if (kind == Kind::Browse && request.password().isEmpty())
        unlocked.setPassword(planPassword(request.bunchId()));
    const QString key = kind == Kind::Change ? changeKey(request) : QString();
    if (!key.isEmpty())
        m_changing.insert(key);
    m_pool.start([this, location, request = unlocked, work, responder, key]() mutable {
        const TypedOutcome outcome = work(Orv::Repository::Repository(location), request);
        // The responder goes back whole: it must answer, and end, on the
        // event loop that owns the connection. The destructor waits for the
        // pool, so this object is still alive here.
        QMetaObject::invokeMethod(
            this,
            [this, responder = std::move(responder), outcome, key] {
                m_changing.remove(key);
                if (!key.isEmpty() && outcome.status() == TypedOutcome::Command::Done)
                    qCInfo(lcService).noquote() << responder.name() << "done for" << key;
                responder.answer(outcome);
            },
            Qt::QueuedConnection);
    });
}

bool RepositoryHandler::makeLocation(const QUuid& accountId, Orv::Repository::Location* location,
                                     QString* error)
{
    const std::optional<QJsonObject> stored = m_accounts.find(accountId);
    if (!stored) {
        *error = QStringLiteral("Error: specified account doesn't exist.\n");
        return false;
    }
    const auto account = Orv::Info::Storage::Connection::fromRecord(*stored);
    QJsonObject params = account.detailParams();
    if (!AccountSecrets::open(&params, error)) {
        qCWarning(lcService).noquote()
            << "Cannot read the storage of the account" << accountId.toString() << ":" << *error;
        *error = QStringLiteral("The secrets of the account cannot be read with this "
                                "installation's key");
        return false;
    }
    // The same location as a run of the account's plans: the same prefix and
    // the same cache folder, so that listings see what the runs wrote.
    const QVariantMap config = Orv::Common::BackendConfig::prepare(params.toVariantMap());
    location->prefix = account.prefix();
    location->cacheFolder = QDir(m_cacheRoot).filePath(account.id().toString(QUuid::WithoutBraces));
    location->backend = [config](Kel::Cloud::Status* status) {
        return Kel::Cloud::Backend::create(config, status);
    };
    return true;
}

QString RepositoryHandler::planPassword(const QString& bunch)
{
    const QUuid planId = QUuid::fromString(bunch);
    if (planId.isNull())
        return {};
    QString error;
    const auto plan = m_plans.load(planId, &error);
    const auto* backup = dynamic_cast<const Orv::Info::Plan::BackupFile*>(plan.data());
    if (!backup || !backup->encryption().isEnabled() ||
        backup->encryption().passwordSecret().isUnopened())
        return {};
    return backup->encryption().password();
}

QString RepositoryHandler::refusal(const Request& request, Kind kind) const
{
    if (kind == Kind::List)
        return {};
    if (m_changing.contains(changeKey(request)))
        return QStringLiteral("A deep sync or removal of bunch %1 is under way; try again when it "
                              "has ended.")
            .arg(request.bunchId());
    if (kind != Kind::Change)
        return {};
    const QUuid plan = QUuid::fromString(request.bunchId());
    if (!plan.isNull() && m_planRunning && m_planRunning(plan))
        return QStringLiteral("The backup plan of bunch %1 is running: its data cannot be "
                              "removed or synchronised until the run ends.")
            .arg(request.bunchId());
    return {};
}

} // namespace Orv::Service
