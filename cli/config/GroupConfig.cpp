#include "GroupConfig.h"

namespace Orv::CLI {

ConfigGroup::ConfigGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("config"), QStringLiteral("general settings"), parent)
{
}

} // namespace Orv::CLI
