#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "queuesize": how many Glacier restore requests may wait at once.
class QueueSizeSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit QueueSizeSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;
};

} // namespace Orv::CLI
