#pragma once

#include "BaseBoolSetting.h"

namespace Orv::CLI {

// Whether plans interrupted by the machine going to sleep carry on when it
// wakes up. Not offered by any group yet.
class ContinuePlanSetting : public BaseBoolSetting
{
    Q_OBJECT
public:
    explicit ContinuePlanSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
};

} // namespace Orv::CLI
