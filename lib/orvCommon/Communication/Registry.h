#pragma once

#include <QString>
#include <QStringList>
#include <QUuid>

namespace Orv::Common::Communication {

namespace V2 {
class Command;
}

// What the channel knows: the named commands, the typed commands and the
// notification types. The command line asks it before sending anything; the
// service asks it to decode what it receives. A new command is one more line
// in Registry.cpp.
class Registry
{
public:
    static bool isNamedCommand(const QString& name);
    static QStringList namedCommands();
    // A new, unsent command for the identifier, or null when it is unknown.
    static V2::Command* createTypedCommand(const QUuid& commandId);
    static QList<QUuid> typedCommands();
    static bool isNotificationType(const QUuid& type);
};

} // namespace Orv::Common::Communication
