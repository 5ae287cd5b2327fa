#include "orvCommon/SymlinkBackupMode.h"

#include "orvCommon/DefaultSettings.h"

#include <array>

namespace Orv::Common {

namespace {

struct ModeText
{
    const char* name;
    const char* description;
};

constexpr std::array<ModeText, 5> kModes = {{
    {"Ignore", "Symbolic links are skipped"},
    {"SymlinkOnly", "Only the link itself is backed up, not what it points to"},
    {"CurrentPlace", "What the link points to is backed up in the place of the link"},
    {"OriginalPlaces", "What the link points to is backed up in its own place"},
    {"OriginalPlaceAndSymlink",
     "The link is backed up, and what it points to is backed up in its own place"},
}};

constexpr SymlinkBackupMode::Mode kDefaultMode = SymlinkBackupMode::SymlinkOnly;

} // namespace

QStringList SymlinkBackupMode::names()
{
    QStringList list;
    for (const ModeText& mode : kModes)
        list.append(QLatin1String(mode.name));
    return list;
}

QString SymlinkBackupMode::name(Mode mode)
{
    return QLatin1String(kModes.at(static_cast<size_t>(mode)).name);
}

QString SymlinkBackupMode::description(Mode mode)
{
    return QLatin1String(kModes.at(static_cast<size_t>(mode)).description);
}

int SymlinkBackupMode::indexOf(const QString& name)
{
    for (size_t i = 0; i < kModes.size(); ++i)
        if (name.compare(QLatin1String(kModes[i].name), Qt::CaseInsensitive) == 0)
            return static_cast<int>(i);
    return -1;
}

void SymlinkBackupMode::setBackupMode(int index)
{
    if (index >= 0 && index < static_cast<int>(kModes.size()))
        m_mode = static_cast<Mode>(index);
}

bool SymlinkBackupMode::getFromDefault()
{
    const int index = indexOf(DefaultSettings::instance()->getSymlinksBackupMode());
    m_mode = index >= 0 ? static_cast<Mode>(index) : kDefaultMode;
    return index >= 0;
}

bool SymlinkBackupMode::saveToDefault() const
{
    return DefaultSettings::instance()->setSymlinksBackupMode(name(m_mode));
}

} // namespace Orv::Common
