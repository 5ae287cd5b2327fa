#include "orvCommon/Communication/Registry.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "orvCommon/Communication/V2/DiagnosticLogs.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvCommon/Communication/V2/SaveStorage.h"

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

template <typename Definition> TypedEntry typed(const char* name)
{
    return {Definition::CommandId, name, [name] {
                return new typename Definition::Command(Definition::CommandId, QLatin1String(name));
            }};
}

const QList<TypedEntry>& typedTable()
{
    static const QList<TypedEntry> table = {
        typed<V2::Plan::GetPlanList>("GetPlanList"),
        typed<V2::Plan::StartPlan>("StartPlan"),
        typed<V2::Plan::StopPlan>("StopPlan"),
        typed<V2::Plan::RemovePlan>("RemovePlan"),
        typed<V2::GetConnection>("GetConnection"),
        typed<V2::Storage::SaveStorage>("SaveStorage"),
        typed<V2::Repository::GetBunchList>("GetBunchList"),
        typed<V2::Repository::GetGenerationList>("GetGenerationList"),
        typed<V2::Repository::GetRestorePointList>("GetRestorePointList"),
        typed<V2::Repository::GetBunchRestorePointList>("GetBunchRestorePointList"),
        typed<V2::Repository::GetContent>("GetContent"),
        typed<V2::Repository::GetRestorePointPaths>("GetRestorePointPaths"),
        typed<V2::Repository::StartDeepSync>("StartDeepSync"),
        typed<V2::Repository::RemoveDataBunch>("RemoveDataBunch"),
        typed<V2::Repository::RemoveDataGeneration>("RemoveDataGeneration"),
        typed<V2::Diagnostics::SendLogs>("SendLogs"),
    };
    return table;
}

} // namespace

QStringList Registry::namedCommands()
{
    return {
        QLatin1String(Format::Storage::GetConnection::Name),
        QLatin1String(Format::Plan::GetList::Name),
        QLatin1String(Format::Plan::CommonEdit::Name),
        QLatin1String(Format::Storage::DeleteFileSystem::Name),
        QLatin1String(Format::Storage::Check::Name),
        QLatin1String(Format::Storage::SynchronizeRepository::Name),
        QLatin1String(Format::Ssl::ReadFromStorage::Name),
        QLatin1String(Format::Ssl::AppendToStorage::Name),
        QLatin1String(Format::Ssl::WriteToStorage::Name),
        QLatin1String(Format::Ssl::RemoveFromStorage::Name),
        QLatin1String(Format::Ssl::GetPeerCertificate::Name),
        QLatin1String(Format::Diagnostics::SaveLogs::Name),
        QLatin1String(Format::System::ProductInformation::Name),
        QLatin1String(Format::System::UninstallNotification::Name),
        QLatin1String(Format::Config::Export::Name),
        QLatin1String(Format::Config::Import::Name),
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
           type == Notification::Format::System::UpdateProgress::Type ||
           type == Notification::Format::SslStorageChange::Type;
}

} // namespace Orv::Common::Communication
