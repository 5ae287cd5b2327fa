#include "GroupTarn.h"

#include "RootItems.h"

namespace Orv::CLI {

TarnCommandGroup::TarnCommandGroup(QObject* parent) : CommandGroupBase(QString(), QString(), parent)
{
    addCommonRootItems(this, false);
}

} // namespace Orv::CLI
