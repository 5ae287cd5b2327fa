#include "GroupSetSettings.h"

namespace Orv::CLI {

SetSettingsGroup::SetSettingsGroup(QObject* parent)
    : SettingsGroup(QStringLiteral("set"), QStringLiteral("set a new value for a setting"),
                    SettingCommandType::Set, parent)
{
}

} // namespace Orv::CLI
