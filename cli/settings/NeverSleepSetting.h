#pragma once

#include "BaseBoolSetting.h"

namespace Orv::CLI {

// Whether the machine is kept awake while a backup or restore runs. Not
// offered by any group yet.
class NeverSleepSetting : public BaseBoolSetting
{
    Q_OBJECT
public:
    explicit NeverSleepSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
};

} // namespace Orv::CLI
