#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "threadcount": how many threads a backup or restore uses, 1 to 100.
class ThreadCountSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit ThreadCountSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;
};

} // namespace Orv::CLI
