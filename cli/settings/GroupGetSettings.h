#pragma once

#include "GroupSettings.h"

namespace Orv::CLI {

// "config get <setting>": shows the current value of a setting.
class GetSettingsGroup : public SettingsGroup
{
    Q_OBJECT
public:
    explicit GetSettingsGroup(QObject* parent = nullptr);
};

} // namespace Orv::CLI
