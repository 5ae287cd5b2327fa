#include "orvCommon/Installation.h"

#include "orvCommon/AppPath.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/SettingsKeys.h"

#include <QSettings>

namespace Orv::Defines {

namespace {

Installation*& instance()
{
    static Installation* installation = nullptr;
    return installation;
}

} // namespace

Installation::Installation()
{
    const QSettings file(AppPath::to().installationFile(), QSettings::IniFormat);
    const QString edition =
        file.value(QStringLiteral("Installation/edition")).toString().trimmed().toLower();
    m_edition = edition == QLatin1String("managed") ? Edition::Managed : Edition::Standalone;
    m_productId = file.value(QStringLiteral("Installation/product_id")).toString();
}

const Installation& Installation::current()
{
    if (!instance())
        instance() = new Installation();
    return *instance();
}

void Installation::reload()
{
    delete instance();
    instance() = new Installation();
}

} // namespace Orv::Defines

namespace SHARED::defines::common {

bool is_standalone()
{
    return Orv::Defines::Installation::current().edition() ==
           Orv::Defines::Installation::Edition::Standalone;
}

bool is_tarn()
{
    return !is_standalone();
}

bool isDebug()
{
    const QByteArray value = qgetenv("ORV_DEBUG");
    return !value.isEmpty() && value != "0";
}

Kel::LogLevel logLevel()
{
    Kel::LogLevel level = Kel::LogLevel::High;
    Kel::logLevelFromName(Orv::DefaultSettings::instance()->getLogLevel(), &level);
    return level;
}

bool setLogLevel(Kel::LogLevel level)
{
    return Orv::DefaultSettings::instance()->setLogLevel(Kel::logLevelName(level));
}

int logRotateDays()
{
    bool ok = false;
    const int days = Orv::DefaultSettings::instance()->getLogsRotateTimeout().toInt(&ok);
    if (ok && days > 0)
        return days;
    return Orv::DefaultSettings::instance()
        ->items()
        .value(QLatin1String(Orv::SettingsKeys::LogsRotateTimeout))
        ->defaultValue()
        .toInt();
}

QString logPath()
{
    const QString path = Orv::DefaultSettings::instance()->getLogPath().trimmed();
    return path.isEmpty() ? Orv::DefaultSettings::getDefaultLogPath() : path;
}

} // namespace SHARED::defines::common
