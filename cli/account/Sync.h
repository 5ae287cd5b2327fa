#pragma once

#include <QJsonObject>
#include <QString>

namespace Orv::CLI {

// Look-ups of one account for the commands that act on it.
class Sync
{
public:
    // The record of the account whose display name or ID is the text (an ID
    // with or without braces); empty when none is. Asks the service and
    // waits for it; throws the reason as a QString when the exchange fails.
    static QJsonObject getConnectionByNameOrId(const QString& nameOrId);
    // Whether the record is the account the text names.
    static bool matches(const QJsonObject& record, const QString& name, const QString& id);
};

} // namespace Orv::CLI
