#include "service/StorageConnectionHandler.h"

#include "orvCommon/Communication/Format.h"
#include "service/AccountCatalog.h"
#include "service/HandlerRegistry.h"

namespace Orv::Service {

namespace GetConnection = Orv::Common::Communication::Commands::Format::Storage::GetConnection;

void StorageConnectionHandler::install(HandlerRegistry& registry, AccountCatalog& catalog)
{
    registry.addNamed(QLatin1String(GetConnection::Name),
                      [&catalog](const QJsonObject&, const RequestContext&) {
                          return NamedOutcome::success(
                              {{QLatin1String(GetConnection::Reply::Key), catalog.records()}});
                      });
}

} // namespace Orv::Service
