#include "GroupStandalone.h"

#include "RootItems.h"

namespace Orv::CLI {

StandaloneCommandGroup::StandaloneCommandGroup(QObject* parent) : CommandGroupBase(QString(), QString(), parent)
{
    addCommonRootItems(this, true);
}

} // namespace Orv::CLI
