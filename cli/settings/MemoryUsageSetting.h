#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "memoryusage": the memory multi-threaded work may take, given in MB and
// kept in bytes.
class MemoryUsageSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit MemoryUsageSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;
};

} // namespace Orv::CLI
