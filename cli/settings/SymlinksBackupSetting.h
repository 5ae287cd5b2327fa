#pragma once

#include "BaseSetting.h"

namespace Orv::CLI {

// "symlinksbackup": what backups do with the symbolic links they meet.
class SymlinksBackupSetting : public BaseSetting
{
    Q_OBJECT
public:
    explicit SymlinksBackupSetting(SettingCommandType type, QObject* parent = nullptr);

    int process(const QStringList& args) override;

protected:
    bool readOptions() override;
    bool setOption() override;
    bool getOption() override;

private:
    QCommandLineOption m_modeOption;
    QVariant m_mode;
};

} // namespace Orv::CLI
