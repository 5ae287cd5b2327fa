#include "orvCommon/Installation.h"

#include "orvCommon/AppPath.h"

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

static QString storeValue(const QString& key)
{
    const QSettings store(Orv::Defines::AppPath::to().settingsFile(), QSettings::IniFormat);
    return store.value(key).toString();
}

Kel::LogLevel logLevel()
{
    Kel::LogLevel level = Kel::LogLevel::High;
    Kel::logLevelFromName(storeValue(QStringLiteral("LogLevel")), &level);
    return level;
}

int logRotateDays()
{
    bool ok = false;
    const int days = storeValue(QStringLiteral("Logs Rotate TimeOut")).toInt(&ok);
    return ok && days > 0 ? days : 30;
}

} // namespace SHARED::defines::common
