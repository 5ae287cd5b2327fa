#pragma once

#include <QString>
#include <QStringList>

namespace Orv::Common {

// What a backup does with a symbolic link it meets. The mode is a global
// setting; plans follow it.
class SymlinkBackupMode
{
public:
    enum Mode
    {
        Ignore = 0,
        SymlinkOnly,
        CurrentPlace,
        OriginalPlaces,
        OriginalPlaceAndSymlink
    };

    static QStringList names();
    static QString name(Mode mode);
    static QString description(Mode mode);
    // Case-insensitive; -1 when no mode has that name.
    static int indexOf(const QString& name);

    Mode backupMode() const { return m_mode; }
    // Ignores an index that names no mode.
    void setBackupMode(int index);

    // Reads the mode from the settings store; an unknown stored name reads as
    // the default mode and gives false.
    bool getFromDefault();
    bool saveToDefault() const;

private:
    Mode m_mode = SymlinkOnly;
};

} // namespace Orv::Common
