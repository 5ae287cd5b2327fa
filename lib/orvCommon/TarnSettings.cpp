#include "orvCommon/TarnSettings.h"

#include <QDir>
#include <QSettings>

namespace Orv::Defines::Tarn {

TarnSettingsData TarnSettings::get() const
{
    const QSettings record(QDir(m_path.config()).filePath(QStringLiteral("tarn.conf")),
                           QSettings::IniFormat);
    TarnSettingsData data;
    data.prefix = record.value(QStringLiteral("Tarn/prefix")).toString().trimmed();
    return data;
}

} // namespace Orv::Defines::Tarn
