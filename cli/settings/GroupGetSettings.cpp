#include "GroupGetSettings.h"

namespace Orv::CLI {

GetSettingsGroup::GetSettingsGroup(QObject* parent)
    : SettingsGroup(QStringLiteral("get"), QStringLiteral("get the current value for a setting"),
                    SettingCommandType::Get, parent)
{
}

} // namespace Orv::CLI
