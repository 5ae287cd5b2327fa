#pragma once

#include "BaseSetting.h"
#include "CommandGroupBase.h"

namespace Orv::CLI {

// The catalogue of global settings, every one built with the group's type.
// "get" and "set" hold the same settings under the same names.
class SettingsGroup : public CommandGroupBase
{
    Q_OBJECT
public:
    SettingsGroup(const QString& name, const QString& description, SettingCommandType type,
                  QObject* parent = nullptr);
};

} // namespace Orv::CLI
