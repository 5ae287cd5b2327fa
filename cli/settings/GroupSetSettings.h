#pragma once

#include "GroupSettings.h"

namespace Orv::CLI {

// "config set <setting> <options>": checks and changes a setting.
class SetSettingsGroup : public SettingsGroup
{
    Q_OBJECT
public:
    explicit SetSettingsGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
