#include "service/accounts/StorageAccountHandler.h"

#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "kelCloud/Types.h"
#include "kelNetwork/GlobalConfig.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/SaveStorage.h"
#include "orvCommon/Installation.h"
#include "orvInfo/StorageAccountConfigFormat.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/accounts/RepositorySync.h"
#include "service/accounts/StorageState.h"
#include "service/channel/HandlerRegistry.h"

#include <QJsonArray>

namespace Orv::Service {

namespace Format = Orv::Common::Communication::Commands::Format;
namespace Reply = Format::Storage::GetConnection::Reply;
using SaveStorage = Orv::Common::Communication::V2::Storage::SaveStorage;
using Orv::Info::Storage::Connection;

namespace {

const QString kManagedRefusal =
    QStringLiteral("This storage destination cannot be deleted from the agent, please contact "
                   "your service provider.\n");

bool isManaged()
{
    return !SHARED::defines::common::is_standalone();
}

// The root a record shows: the folder of a file-system account, the bucket,
// container or server folder of the others.
QString rootOf(const QJsonObject& params)
{
    const QString path = params.value(QLatin1String(Kel::Cloud::Config::Path)).toString();
    return path.isEmpty() ? params.value(QLatin1String(Kel::Cloud::Config::Container)).toString()
                          : path;
}

QString nameTakenBy(AccountCatalog& catalog, const QString& name, const QUuid& id)
{
    const QJsonArray records = catalog.records();
    for (const QJsonValue& value : records) {
        const Connection other = Connection::fromRecord(value.toObject());
        if (other.id() != id && other.displayName() == name)
            return other.id().toString();
    }
    return {};
}

} // namespace

void StorageAccountHandler::installCheck(HandlerRegistry& registry)
{
    // The service's own connections trust what the administrator trusted.
    Kel::Network::GlobalConfig::instance()->setTrustedCertificatesPath(
        Orv::Defines::AppPath::to().trustedCertificatesFile());
    registry.addNamedAsync(
        QLatin1String(Format::Storage::Check::Name),
        [](const QJsonObject& params, const RequestContext&, const NamedResponder& responder) {
            namespace Request = Format::Storage::Check::Request;
            using Kel::Cloud::Operation;
            using Kel::Cloud::OperationManager;
            const QString kind = params.value(QLatin1String(Request::Operation)).toString();
            const QVariantMap config =
                params.value(QLatin1String(Request::Config)).toObject().toVariantMap();
            Operation* operation = nullptr;
            if (kind == QLatin1String(Request::CheckConfig))
                operation = OperationManager::checkConfig(config);
            else if (kind == QLatin1String(Request::ListContainers))
                operation = OperationManager::listContainers(config);
            if (!operation) {
                responder.failure(
                    QStringLiteral("Unknown storage operation '%1'").arg(echoedName(kind)));
                return;
            }
            operation->setAutoDelete(true);
            QObject::connect(operation, &Operation::finished, operation, [operation, responder] {
                responder.success(
                    {{QLatin1String(Format::Storage::Check::Reply::Outcome), operation->toJson()}});
            });
        });
}

void StorageAccountHandler::install(HandlerRegistry& registry)
{
    installCheck(registry);
    registry.addTyped<SaveStorage>([this](const SaveStorage::Request& request,
                                          const RequestContext&) {
        const Kel::Cloud::Type type = Kel::Cloud::typeFromValue(request.type());
        if (type == Kel::Cloud::Type::Unknown)
            return TypedOutcome::failed(
                QStringLiteral("Unknown storage type %1").arg(request.type()));
        if (isManaged() && type != Kel::Cloud::Type::FileSystem)
            return TypedOutcome::failed(
                QStringLiteral("Only file system accounts can be saved on a managed client"));
        const QString name = request.displayName();
        if (name.trimmed().isEmpty())
            return TypedOutcome::failed(QStringLiteral("The account needs a name"));
        if (!nameTakenBy(m_catalog, name, request.id()).isEmpty())
            return TypedOutcome::failed(
                QStringLiteral("An account named \"%1\" already exists").arg(name));

        const std::optional<QJsonObject> previous = m_catalog.find(request.id());
        const Connection before = previous ? Connection::fromRecord(*previous) : Connection();
        QJsonObject params = QJsonObject::fromVariantMap(request.params());
        // Values added for the backends at the time of use are never stored.
        for (const char* runtime :
             {Kel::Cloud::Config::ProxyType, Kel::Cloud::Config::ProxyHost,
              Kel::Cloud::Config::ProxyPort, Kel::Cloud::Config::ProxyUser,
              Kel::Cloud::Config::ProxyPassword, Kel::Cloud::Config::KnownHostsFile})
            params.remove(QLatin1String(runtime));
        params.insert(QLatin1String(Kel::Cloud::Config::Id), request.id().toString());
        params.insert(QLatin1String(Kel::Cloud::Config::Type), Kel::Cloud::typeName(type));
        params.insert(QLatin1String(Orv::Info::StorageAccountConfigFormat::BackupPrefix),
                      request.prefix());
        QString error;
        if (!AccountSecrets::seal(&params, before.detailParams(), &error)) {
            qCWarning(lcService).noquote() << "Cannot seal the secrets of an account:" << error;
            return TypedOutcome::failed(QStringLiteral("Cannot protect the account's secrets: ") +
                                        error);
        }

        Connection account;
        account.setId(request.id());
        account.setDisplayName(name);
        account.setType(static_cast<int>(type));
        account.setPath(rootOf(params));
        account.setPrefix(request.prefix());
        account.setSpaceLimit(before.spaceLimit());
        account.setDetailParams(params);
        QJsonObject record = account.toRecord();
        // What the storage holds is reported from the database, never stored here.
        for (const char* live : {Reply::PrefixArray, Reply::SpaceUsed, Reply::SyncStatus})
            record.remove(QLatin1String(live));
        error = m_catalog.save(record);
        if (!error.isEmpty()) {
            qCWarning(lcService).noquote()
                << "Cannot save the account" << account.id().toString() << ":" << error;
            return TypedOutcome::failed(QStringLiteral("Cannot save the account: ") + error);
        }
        qCInfo(lcService).noquote() << (previous ? "Account changed:" : "Account added:")
                                    << account.id().toString() << Kel::Cloud::typeName(type);
        return TypedOutcome::done(SaveStorage::Response());
    });

    registry.addNamed(
        QLatin1String(Format::Storage::DeleteFileSystem::Name),
        [this](const QJsonObject& params, const RequestContext&) {
            const QUuid id(
                params.value(QLatin1String(Format::Storage::DeleteFileSystem::Request::ID))
                    .toString());
            const std::optional<QJsonObject> stored = m_catalog.find(id);
            QString damagedError;
            // A file that cannot be read as an account goes by the ID it is
            // named after; which storage it was for is unknown, so the managed
            // edition leaves it to its provider.
            if (!stored && !isManaged() && m_catalog.removeDamaged(id, &damagedError)) {
                if (!damagedError.isEmpty())
                    return NamedOutcome::failure(QStringLiteral("Cannot delete the account: ") +
                                                 damagedError);
                qCInfo(lcService).noquote() << "Damaged account file deleted:" << id.toString();
                return NamedOutcome::success();
            }
            if (!stored)
                return NamedOutcome::failure(
                    QStringLiteral("Error: specified account doesn't exist.\n"));
            const Connection account = Connection::fromRecord(*stored);
            if (isManaged() && account.type() != static_cast<int>(Kel::Cloud::Type::FileSystem))
                return NamedOutcome::failure(kManagedRefusal);
            if (m_sync.isRunning(id))
                return NamedOutcome::failure(
                    QStringLiteral("The account is being synchronised; try again when it ends"));
            const QString error = m_catalog.remove(id);
            if (!error.isEmpty()) {
                qCWarning(lcService).noquote()
                    << "Cannot delete the account" << id.toString() << ":" << error;
                return NamedOutcome::failure(QStringLiteral("Cannot delete the account: ") + error);
            }
            const QString stateError = m_state.remove(id);
            if (!stateError.isEmpty())
                qCWarning(lcService).noquote()
                    << "The storage state of the deleted account" << id.toString()
                    << "stays in the database:" << stateError;
            qCInfo(lcService).noquote() << "Account deleted:" << id.toString();
            return NamedOutcome::success();
        });
}

} // namespace Orv::Service
