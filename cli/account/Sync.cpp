#include "Sync.h"

#include "CommandChannel.h"
#include "orvCommon/Communication/Format.h"

#include <QJsonArray>
#include <QUuid>

namespace Orv::CLI {

namespace GetConnection = Orv::Common::Communication::Commands::Format::Storage::GetConnection;

bool Sync::matches(const QJsonObject& record, const QString& name, const QString& id)
{
    if (record.isEmpty())
        return false;
    if (!name.isNull() &&
        record.value(QLatin1String(GetConnection::Reply::DisplayName)).toString() == name)
        return true;
    const QUuid wanted(id);
    return !wanted.isNull() &&
           QUuid(record.value(QLatin1String(GetConnection::Reply::ID)).toString()) == wanted;
}

QJsonObject Sync::getConnectionByNameOrId(const QString& nameOrId)
{
    const QJsonObject data =
        CommandChannel::blockingExchange(QLatin1String(GetConnection::Name), {});
    const QJsonArray accounts = data.value(QLatin1String(GetConnection::Reply::Key)).toArray();
    for (const QJsonValue& value : accounts)
        if (matches(value.toObject(), nameOrId, nameOrId))
            return value.toObject();
    return {};
}

} // namespace Orv::CLI
