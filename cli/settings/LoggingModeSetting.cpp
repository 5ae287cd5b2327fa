#include "LoggingModeSetting.h"

#include "Console.h"
#include "kelCore/LogLocation.h"
#include "kelCore/LogManager.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Installation.h"
#include "orvCommon/SettingsKeys.h"

#include <QFileInfo>

namespace Orv::CLI {

namespace {

QString defaultLevelName()
{
    return DefaultSettings::instance()
        ->items()
        .value(QLatin1String(SettingsKeys::LogLevel))
        ->defaultValue();
}

} // namespace

LoggingModeSetting::LoggingModeSetting(SettingCommandType type, QObject* parent)
    : BaseSetting(QStringLiteral("logging"), QStringLiteral("Logging settings"), type, parent),
      m_modeOption(QStringLiteral("mode"),
                   QStringLiteral("Logging mode (Disable, Low, High, Debug)"),
                   QStringLiteral("mode")),
      m_rotationOption(QStringLiteral("rotation"),
                       QStringLiteral("Number of days to purge log files"), QStringLiteral("days")),
      m_pathOption(QStringLiteral("path"), QStringLiteral("Path to logs"), QStringLiteral("path"))
{
    registerOption(m_modeOption);
    registerOption(m_rotationOption);
    registerOption(m_pathOption);
}

int LoggingModeSetting::process(const QStringList& args)
{
    return run(args);
}

bool LoggingModeSetting::readOptions()
{
    return setOptionalOption(m_modeOption, m_mode) &&
           setOptionalOption(m_rotationOption, m_rotation) &&
           setOptionalOption(m_pathOption, m_path);
}

bool LoggingModeSetting::getOption()
{
    DefaultSettings* store = DefaultSettings::instance();
    print(tr("Logging settings:\n    mode:     %1\n    rotation: %2 day(s)\n    location: %3\n")
              .arg(Kel::logLevelName(SHARED::defines::common::logLevel()),
                   store->getLogsRotateTimeout(), store->getLogPath()));
    return true;
}

void LoggingModeSetting::printUsage() const
{
    QStringList names = Kel::logLevelNames();
    const QString fallback = defaultLevelName();
    for (QString& name : names)
        if (name == fallback)
            name += QStringLiteral(" (default)");
    print(tr("set logging -mode <%1> -rotation <days> -path <path>\n\t-mode <value>:  Possible "
             "values: %2 day(s)\n\t-rotation <days>: Number of days to purge log files\n\t-path "
             "<value>: Path to logs\n")
              .arg(names.join(QLatin1Char('|')), names.join(QStringLiteral(", "))));
}

bool LoggingModeSetting::validate()
{
    Kel::LogLevel level{};
    if (given(m_modeOption) && !Kel::logLevelFromName(m_mode.toString(), &level)) {
        print(tr("Mode \"%1\" does not exist.\n").arg(m_mode.toString()));
        return false;
    }
    if (given(m_rotationOption)) {
        bool ok = false;
        const int days = m_rotation.toString().toInt(&ok);
        if (!ok) {
            print(tr("Rotation timeout exceeds maximum value or is not a number.\n"));
            return false;
        }
        if (days <= 0) {
            print(tr("Rotation timeout must be greater than zero.\n"));
            return false;
        }
    }
    if (given(m_pathOption)) {
        const Kel::LogLocation::Status status = Kel::LogLocation::check(m_path.toString());
        if (status != Kel::LogLocation::Status::NoError) {
            print(Kel::LogLocation::message(status) + QStringLiteral("\n"));
            return false;
        }
    }
    return true;
}

bool LoggingModeSetting::setOption()
{
    if (!given(m_modeOption) && !given(m_rotationOption) && !given(m_pathOption)) {
        printUsage();
        return false;
    }
    if (!validate())
        return false;
    DefaultSettings* store = DefaultSettings::instance();
    if (given(m_modeOption)) {
        Kel::LogLevel level{};
        Kel::logLevelFromName(m_mode.toString(), &level);
        if (!outputResult(SHARED::defines::common::setLogLevel(level)))
            return false;
        print(tr("Logging mode is set to: %1\n").arg(Kel::logLevelName(level)));
    }
    if (given(m_rotationOption)) {
        const QString days = QString::number(m_rotation.toString().toInt());
        if (!outputResult(store->setLogsRotateTimeout(days)))
            return false;
        print(tr("Logging rotation timeout is set to: %1 day(s)\n").arg(days));
    }
    if (given(m_pathOption)) {
        // Both programs must find the same folder, whatever their working folder.
        const QString path = QFileInfo(m_path.toString()).absoluteFilePath();
        if (!outputResult(store->setLogPath(path)))
            return false;
        print(tr("Logging path is set to: %1\n").arg(path));
    }
    return true;
}

} // namespace Orv::CLI
