#include "BaseSetting.h"

#include "Console.h"
#include "orvCommon/DefaultSettings.h"

#include <QCoreApplication>

namespace Orv::CLI {

BaseSetting::BaseSetting(const QString& name, const QString& description, SettingCommandType type,
                         QObject* parent)
    : CommandBase(name, description, parent), m_type(type)
{
}

int BaseSetting::process(const QStringList& args)
{
    if ((args.isEmpty() && isSet()) || (!args.isEmpty() && isHelpWord(args.first()))) {
        print(m_parser.helpText());
        return HelpShownNoWords;
    }
    const QStringList arguments = QStringList{QCoreApplication::applicationFilePath()} + args;
    if (!m_parser.parse(arguments) && isSet()) {
        print(m_parser.errorText() + QStringLiteral("\n"));
        return Unknown;
    }
    m_parser.process(arguments);
    return Started;
}

bool BaseSetting::exec()
{
    createLogInfo();
    if (!isSet())
        warnIfStoreUnusable();
    return isSet() ? setOption() : getOption();
}

void BaseSetting::warnIfStoreUnusable()
{
    const DefaultSettings* store = DefaultSettings::instance();
    switch (store->fileState()) {
    case DefaultSettings::FileState::Corrupt:
        warn(QStringLiteral("Warning: the settings file %1 is damaged; the values shown are the "
                            "defaults. The next change keeps it as %1.corrupt and starts anew.\n")
                 .arg(store->filePath()));
        break;
    case DefaultSettings::FileState::Unreadable:
        warn(QStringLiteral("Warning: the settings file %1 cannot be read; the values shown are "
                            "the defaults.\n")
                 .arg(store->filePath()));
        break;
    case DefaultSettings::FileState::Missing:
    case DefaultSettings::FileState::Valid:
        break;
    }
}

bool BaseSetting::outputResult(bool ok)
{
    if (!ok)
        print(tr("Can't save values\n"));
    return ok;
}

int BaseSetting::run(const QStringList& args)
{
    const int code = BaseSetting::process(args);
    if (code != Started)
        return code;
    if (isSet() && !readOptions())
        return Unknown;
    if (exec())
        emit finished(isSet() ? Show : DontShow);
    else
        emit error(QString());
    return Started;
}

void BaseSetting::registerOption(const QCommandLineOption& option, bool logValue)
{
    if (isSet())
        addOption(option, logValue);
}

QString BaseSetting::stateName(bool enabled)
{
    return enabled ? QStringLiteral("enabled") : QStringLiteral("disabled");
}

} // namespace Orv::CLI
