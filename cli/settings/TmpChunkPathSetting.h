#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "chunkpath": the folder where multipart uploads keep their chunks while they
// wait. The service may run under another account, so the folder is opened to
// everyone.
class TmpChunkPathSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit TmpChunkPathSetting(SettingCommandType type, QObject* parent = nullptr);

    // "/tmp/<product display name>/Plans/", used while the store holds none.
    static QString defaultPath();

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;
};

} // namespace Orv::CLI
