#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "connection": how often and how far apart the client retries a connection
// that failed. The running service follows changes at once.
class ConnectionSetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit ConnectionSetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    QCommandLineOption m_countOption;
    QCommandLineOption m_intervalOption;
    QVariant m_count;
    QVariant m_interval;
};

} // namespace Orv::CLI
