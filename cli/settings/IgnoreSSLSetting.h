#pragma once

#include "BaseValueSetting.h"

namespace Orv::CLI {

// "ignoressl": whether the client accepts servers whose certificates do not
// verify. Answers "yes" or "no"; the store keeps "true" or "false".
class IgnoreSSLSetting : public BaseValueSetting
{
    Q_OBJECT
public:
    explicit IgnoreSSLSetting(SettingCommandType type, QObject* parent = nullptr);

protected:
    bool setOption() override;
    bool getOption() override;
    QString usage() const override;

private:
    void printState(bool ignore);
};

} // namespace Orv::CLI
