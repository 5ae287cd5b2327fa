#include "service/accounts/RepositorySync.h"

#include "orvCommon/BackendConfig.h"
#include "orvCommon/Communication/Format.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/accounts/StorageState.h"
#include "service/channel/HandlerRegistry.h"

#include <QDateTime>

namespace Orv::Service {

namespace Format = Orv::Common::Communication::Commands::Format;
using Orv::Info::Storage::Connection;

RepositorySync::RepositorySync(AccountCatalog& catalog, StorageState& state, Scanner scanner,
                               QObject* parent)
    : QObject(parent), m_catalog(catalog), m_state(state), m_scanner(std::move(scanner))
{
    // Passes are rare; a thread that has ended one is not kept (its TLS
    // clean-up would otherwise race with the end of the process).
    m_pool.setExpiryTimeout(0);
}

RepositorySync::~RepositorySync()
{
    stop();
}

void RepositorySync::install(HandlerRegistry& registry)
{
    registry.addNamed(
        QLatin1String(Format::Storage::SynchronizeRepository::Name),
        [this](const QJsonObject& params, const RequestContext&) {
            const QUuid id(
                params.value(QLatin1String(Format::Storage::SynchronizeRepository::Request::Id))
                    .toString());
            QString error;
            if (!start(id, &error))
                return NamedOutcome::failure(error);
            return NamedOutcome::success();
        });
}

bool RepositorySync::start(const QUuid& accountId, QString* error)
{
    const std::optional<QJsonObject> stored = m_catalog.find(accountId);
    if (!stored) {
        *error = QStringLiteral("Error: specified account doesn't exist.\n");
        return false;
    }
    if (isRunning(accountId)) {
        *error = QStringLiteral("Error: sync is started.\n");
        return false;
    }
    QJsonObject params = Connection::fromRecord(*stored).detailParams();
    if (!AccountSecrets::open(&params, error)) {
        qCWarning(lcService).noquote()
            << "Cannot synchronise the account" << accountId.toString() << ":" << *error;
        *error = QStringLiteral("The secrets of the account cannot be read with this "
                                "installation's key");
        return false;
    }
    auto cancelled = std::make_shared<std::atomic_bool>(false);
    m_running.insert(accountId, cancelled);
    ++m_generation;
    qCInfo(lcService).noquote() << "Synchronisation of the account" << accountId.toString()
                                << "started";
    const QVariantMap config = Orv::Common::BackendConfig::prepare(params.toVariantMap());
    m_pool.start([this, scanner = m_scanner, config, cancelled, accountId] {
        const Result result = scanner(config, *cancelled);
        // The destructor waits for the pool, so this object is still alive
        // here; a call still queued when it goes is dropped with it.
        QMetaObject::invokeMethod(
            this, [this, accountId, result] { onPassEnded(accountId, result); },
            Qt::QueuedConnection);
    });
    return true;
}

void RepositorySync::onPassEnded(const QUuid& accountId, const Result& result)
{
    m_running.remove(accountId);
    ++m_generation;
    if (!result.error.isEmpty()) {
        qCWarning(lcService).noquote() << "Synchronisation of the account" << accountId.toString()
                                       << "failed:" << result.error;
        emit passEnded(accountId, result.error);
        return;
    }
    // An account deleted while its pass ran leaves nothing behind.
    if (!m_catalog.find(accountId)) {
        emit passEnded(accountId, QString());
        return;
    }
    StorageState::Entry entry;
    entry.spaceUsed = result.spaceUsed;
    entry.prefixes = result.prefixes;
    entry.synced = QDateTime::currentDateTimeUtc();
    const QString error = m_state.store(accountId, entry);
    if (!error.isEmpty())
        qCWarning(lcService).noquote() << "Cannot record the synchronisation of the account"
                                       << accountId.toString() << ":" << error;
    else
        qCInfo(lcService).noquote()
            << "Synchronisation of the account" << accountId.toString()
            << "ended:" << result.spaceUsed << "bytes," << result.prefixes.size() << "prefixes";
    emit passEnded(accountId, error);
}

void RepositorySync::stop()
{
    for (const auto& cancelled : qAsConst(m_running))
        *cancelled = true;
    m_pool.waitForDone();
}

} // namespace Orv::Service
