#include "orvCommon/Communication/Registry.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "orvCommon/Communication/V2/PlanCommands.h"

#include <functional>

namespace Orv::Common::Communication {

namespace {

namespace Format = Commands::Format;

struct TypedEntry
{
    QUuid id;
    const char* name;
    std::function<V2::Command*()> create;
};

template <typename Definition>
TypedEntry typed(const char* name)
{
    return {Definition::CommandId, name, [name] {
                return new typename Definition::Command(Definition::CommandId,
                                                        QLatin1String(name));
            }};
}

const QList<TypedEntry>& typedTable()
{
    static const QList<TypedEntry> table = {
        typed<V2::Plan::GetPlanList>("GetPlanList"),
    };
    return table;
}

} // namespace

QStringList Registry::namedCommands()
{
    return {
        QLatin1String(Format::Storage::GetConnection::Name),
        QLatin1String(Format::Plan::GetList::Name),
    };
}

bool Registry::isNamedCommand(const QString& name)
{
    return namedCommands().contains(name);
}

V2::Command* Registry::createTypedCommand(const QUuid& commandId)
{
    for (const TypedEntry& entry : typedTable())
        if (entry.id == commandId)
            return entry.create();
    return nullptr;
}

QList<QUuid> Registry::typedCommands()
{
    QList<QUuid> ids;
    for (const TypedEntry& entry : typedTable())
        ids.append(entry.id);
    return ids;
}

bool Registry::isNotificationType(const QUuid& type)
{
    return type == Notification::Format::System::Update::Type ||
           type == Notification::Format::System::UpdateProgress::Type;
}

} // namespace Orv::Common::Communication
