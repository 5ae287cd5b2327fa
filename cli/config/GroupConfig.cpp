#include "GroupConfig.h"

#include "CommandExportConfig.h"
#include "CommandImportConfig.h"
#include "settings/GroupGetSettings.h"
#include "settings/GroupSetSettings.h"

namespace Orv::CLI {

ConfigGroup::ConfigGroup(QObject* parent)
    : CommandGroupBase(QStringLiteral("config"), QStringLiteral("general settings"), parent)
{
    addSubItem(QSharedPointer<CommandExportConfig>::create());
    addSubItem(QSharedPointer<CommandImportConfig>::create());
    addSubItem(QSharedPointer<GetSettingsGroup>::create());
    addSubItem(QSharedPointer<SetSettingsGroup>::create());
}

} // namespace Orv::CLI
