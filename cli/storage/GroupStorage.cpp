#include "GroupStorage.h"

namespace Orv::CLI {

StorageGroup::StorageGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("storage"), QStringLiteral("storage commands"), parent)
{
}

} // namespace Orv::CLI
