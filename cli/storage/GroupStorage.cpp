#include "GroupStorage.h"

#include "CommandStorageDeepSync.h"
#include "CommandStorageDeleteBackupData.h"
#include "CommandStorageList.h"

namespace Orv::CLI {

StorageGroup::StorageGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("storage"), QStringLiteral("storage commands"), parent)
{
    addSubItem(QSharedPointer<CommandStorageList>::create());
    addSubItem(QSharedPointer<CommandStorageDeepSync>::create());
    addSubItem(QSharedPointer<CommandStorageDeleteBackupData>::create());
}

} // namespace Orv::CLI
