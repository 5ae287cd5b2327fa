#include "service/accounts/StorageConnectionHandler.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/accounts/RepositorySync.h"
#include "service/accounts/StorageState.h"
#include "service/channel/HandlerRegistry.h"

#include <QJsonArray>

namespace Orv::Service {

namespace GetConnection = Orv::Common::Communication::Commands::Format::Storage::GetConnection;
using TypedGetConnection = Orv::Common::Communication::V2::GetConnection;
using Orv::Info::Storage::Connection;

StorageConnectionHandler::StorageConnectionHandler(AccountCatalog& catalog, StorageState& state,
                                                   const RepositorySync& sync)
    : m_catalog(catalog), m_state(state), m_sync(sync)
{
}

void StorageConnectionHandler::install(HandlerRegistry& registry)
{
    // The profile a client names is not used: an instance has one set of accounts.
    registry.addNamed(QLatin1String(GetConnection::Name),
                      [this](const QJsonObject&, const RequestContext&) {
                          return NamedOutcome::success(namedData());
                      });
    registry.addTyped<TypedGetConnection>(
        [this](const TypedGetConnection::Request& request, const RequestContext&) {
            QJsonArray connections;
            const QJsonArray stored = m_catalog.records();
            for (const QJsonValue& value : stored) {
                const QJsonObject record = value.toObject();
                if (!request.id().isNull() &&
                    QUuid(record.value(QLatin1String(GetConnection::Reply::ID)).toString()) !=
                        request.id())
                    continue;
                const QJsonObject shown = publicRecord(record, request.withSecrets());
                if (shown.isEmpty())
                    return TypedOutcome::failed(
                        QStringLiteral("The secrets of an account cannot be read with this "
                                       "installation's key"));
                connections.append(shown);
            }
            TypedGetConnection::Response response;
            response.setConnections(connections);
            return TypedOutcome::done(response);
        });
}

QJsonObject StorageConnectionHandler::publicRecord(const QJsonObject& stored,
                                                   bool withSecrets) const
{
    Connection connection = Connection::fromRecord(stored);
    const StorageState::Entry state = m_state.entry(connection.id());
    connection.setSpaceUsed(state.spaceUsed);
    connection.setPrefixArray(state.prefixes);
    connection.setSyncStatus(m_sync.isRunning(connection.id()));
    QJsonObject params = connection.detailParams();
    if (withSecrets) {
        QString error;
        if (!AccountSecrets::open(&params, &error)) {
            qCWarning(lcService).noquote() << "Cannot open the secrets of the account"
                                           << connection.id().toString() << ":" << error;
            return {};
        }
        connection.setDetailParams(params);
    } else {
        connection.setDetailParams(AccountSecrets::masked(params));
    }
    return connection.toRecord();
}

const EncodedJson& StorageConnectionHandler::namedData()
{
    const QJsonArray stored = m_catalog.records();
    const QVector<quint64> generations{m_catalog.generation(), m_state.generation(),
                                       m_sync.generation()};
    if (generations == m_generations)
        return m_namedData;
    QJsonArray records;
    for (const QJsonValue& value : stored)
        records.append(publicRecord(value.toObject(), false));
    QJsonObject data{{QLatin1String(GetConnection::Reply::Key), records}};
    const QJsonArray damaged = m_catalog.damaged();
    if (!damaged.isEmpty())
        data.insert(QLatin1String(GetConnection::Reply::Damaged), damaged);
    m_namedData = EncodedJson(data);
    m_generations = generations;
    return m_namedData;
}

} // namespace Orv::Service
