#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "chunksize": the default size of the chunks uploads are cut into, 5 to
// 5120 MB, kept in bytes.
class ChunkSizeSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit ChunkSizeSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;
};

} // namespace Orv::CLI
