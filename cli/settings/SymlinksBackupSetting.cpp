#include "SymlinksBackupSetting.h"

#include "Console.h"
#include "orvCommon/SymlinkBackupMode.h"

namespace Orv::CLI {

using Common::SymlinkBackupMode;

SymlinksBackupSetting::SymlinksBackupSetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("symlinksbackup"), QStringLiteral("Symlinks backup mode"), type,
                  parent),
      m_modeOption(QStringList{QStringLiteral("m"), QStringLiteral("mode")},
                   QStringLiteral("Ignore, SymlinkOnly, CurrentPlace, OriginalPlaces, "
                                  "OriginalPlaceAndSymlink"),
                   QStringLiteral("mode"))
{
    registerOption(m_modeOption);
}

int SymlinksBackupSetting::process(const QStringList& args)
{
    return run(args);
}

bool SymlinksBackupSetting::readOptions()
{
    return setOptionalOption(m_modeOption, m_mode);
}

bool SymlinksBackupSetting::getOption()
{
    SymlinkBackupMode modes;
    modes.getFromDefault();
    print(tr("Symlinks backup mode:\n"));
    print(QStringLiteral("    %1\n").arg(SymlinkBackupMode::description(modes.backupMode())));
    return true;
}

bool SymlinksBackupSetting::setOption()
{
    const QString name = m_mode.toString();
    if (name.isEmpty()) {
        print(tr("set symlinksbackup -mode mode_name\n"));
        print(tr("Modes:\n"));
        const QStringList names = SymlinkBackupMode::names();
        for (int i = 0; i < names.size(); ++i)
            print(QStringLiteral("  %1: %2\n")
                      .arg(names.at(i), SymlinkBackupMode::description(
                                            static_cast<SymlinkBackupMode::Mode>(i))));
        return false;
    }
    const int index = SymlinkBackupMode::indexOf(name);
    if (index < 0) {
        print(tr("Mode \"%1\" does not exist.\n").arg(name));
        return outputResult(false);
    }
    SymlinkBackupMode modes;
    modes.setBackupMode(index);
    if (!outputResult(modes.saveToDefault()))
        return false;
    print(tr("Symlinks backup mode is set to: "));
    print(QStringLiteral("%1 - %2\n")
              .arg(SymlinkBackupMode::name(modes.backupMode()),
                   SymlinkBackupMode::description(modes.backupMode())));
    return true;
}

} // namespace Orv::CLI
