#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "logging": how much the client logs, how long rotated logs are kept and
// where the log files go. The running service follows changes at once.
class LoggingModeSetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit LoggingModeSetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    // Checks every option given; prints the first problem.
    bool validate();
    void printUsage() const;

    QCommandLineOption m_modeOption;
    QCommandLineOption m_rotationOption;
    QCommandLineOption m_pathOption;
    QVariant m_mode;
    QVariant m_rotation;
    QVariant m_path;
};

} // namespace Orv::CLI
