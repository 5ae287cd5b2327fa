#include "CommandBase.h"

#include "Console.h"

#include <QCoreApplication>

namespace Orv::CLI {

const QString CommandBase::Help = QStringLiteral("help");
const QString CommandBase::Edit = QStringLiteral("edit");
const QString CommandBase::Account = QStringLiteral("account");
const QMap<QString, bool> CommandBase::SwitchModeValue = {{QStringLiteral("true"), true},
                                                          {QStringLiteral("false"), false}};
const QMap<bool, QString> CommandBase::SwitchModeName = {{true, QStringLiteral("true")},
                                                         {false, QStringLiteral("false")}};
const QVector<QString> CommandBase::s_helpWords = {QStringLiteral("help"), QStringLiteral("-h"),
                                                   QStringLiteral("--help")};
const QVector<QString> CommandBase::s_topLevelWords = {QStringLiteral("version"),
                                                       QStringLiteral("check_update")};

CommandBase::CommandBase(const QString& name, const QString& description, QObject* parent,
                         bool viewItemsHelp)
    : QObject(parent), m_name(name), m_description(description), m_viewItemsHelp(viewItemsHelp)
{
    // "-mode value" reads as the option "mode", as the usage texts write it.
    m_parser.setSingleDashWordOptionMode(QCommandLineParser::ParseAsLongOptions);
}

QStringList& CommandBase::optionNames()
{
    static QStringList names;
    return names;
}

bool CommandBase::isHelpWord(const QString& word)
{
    return s_helpWords.contains(word);
}

QString CommandBase::listingLine(const QString& name, const QString& description)
{
    QString line = name;
    if (name.size() < maxCommandLength)
        line += QString(maxCommandLength - name.size(), QLatin1Char(' '));
    return line + QStringLiteral(" - ") + description;
}

QString CommandBase::help() const
{
    const QString indent = s_topLevelWords.contains(m_name) ? QString() : QStringLiteral("\t");
    return indent + listingLine(m_name, m_description);
}

bool CommandBase::viewItemsHelp() const
{
    return m_viewItemsHelp;
}

QMap<QString, QSharedPointer<CommandBase>> CommandBase::subItems() const
{
    return m_subItems;
}

void CommandBase::helpMessageExt() const
{
    print(m_name + QStringLiteral("  - ") + m_description + QStringLiteral("\n"));
    print(m_parser.helpText());
}

int CommandBase::exec(const QStringList& words)
{
    if (words.isEmpty() || isHelpWord(words.first())) {
        helpMessageExt();
        return HelpShownNoWords;
    }
    return initProcess(words) ? Started : Unknown;
}

int CommandBase::execNoArgs(const QStringList& words)
{
    if (!words.isEmpty() && isHelpWord(words.first())) {
        helpMessageExt();
        return HelpShown;
    }
    return initProcess(words) ? Started : Unknown;
}

bool CommandBase::initProcess(const QStringList& words)
{
    const QStringList arguments = QStringList{QCoreApplication::applicationFilePath()} + words;
    if (!m_parser.parse(arguments)) {
        print(m_parser.errorText() + QStringLiteral("\n"));
        return false;
    }
    const QStringList positional = m_parser.positionalArguments();
    for (const QString& word : positional) {
        if (optionNames().contains(word)) {
            print(QStringLiteral("Missing ('-','--') before option [") + word +
                  QStringLiteral("]\n"));
            return false;
        }
    }
    createLogInfo();
    m_parser.process(arguments);
    return true;
}

void CommandBase::addOption(const QCommandLineOption& option, bool logValue)
{
    optionNames().append(option.names());
    addLocalOption(option);
    if (logValue)
        m_optionsForLog.append(option.names());
}

void CommandBase::addLocalOption(const QCommandLineOption& option)
{
    m_parser.addOption(option);
    m_options.append(option);
}

QString CommandBase::joinedNames(const QCommandLineOption& option)
{
    return option.names().join(QLatin1Char(','));
}

bool CommandBase::setOptionalOption(const QCommandLineOption& option, QVariant& out)
{
    if (m_parser.isSet(option))
        out = m_parser.value(option).trimmed();
    return true;
}

bool CommandBase::setMandatoryOption(const QCommandLineOption& option, QVariant& out)
{
    if (!m_parser.isSet(option)) {
        print(QStringLiteral("Option [ ") + joinedNames(option) +
              QStringLiteral(" ] is mandatory.\n"));
        return false;
    }
    out = m_parser.value(option).trimmed();
    return true;
}

bool CommandBase::setSwitchModeOption(const QCommandLineOption& option, QVariant& out,
                                      bool mandatory)
{
    if (!m_parser.isSet(option)) {
        if (!mandatory)
            return true;
        print(QStringLiteral("Options [ ") + joinedNames(option) +
              QStringLiteral(" ] is mandatory.\n"));
        return false;
    }
    // Matched exactly: "True", "yes" and " true" are refused.
    const QString value = m_parser.value(option);
    if (!SwitchModeValue.contains(value)) {
        print(QStringLiteral("Options [ ") + joinedNames(option) +
              QStringLiteral(" ] must be 'true' or 'false'.\n"));
        return false;
    }
    out = SwitchModeValue.value(value);
    return true;
}

bool CommandBase::setSwitchModeOption(const QCommandLineOption& option, bool mandatory)
{
    QVariant ignored;
    return setSwitchModeOption(option, ignored, mandatory);
}

bool CommandBase::checkIncompatibleParams(const QCommandLineOption& a, const QCommandLineOption& b)
{
    if (!m_parser.isSet(a) || !m_parser.isSet(b))
        return true;
    print(QStringLiteral("Options [ ") + joinedNames(a) + QStringLiteral(" ] and [ ") +
          joinedNames(b) + QStringLiteral(" ] are incompatible.\n"));
    return false;
}

bool CommandBase::checkMandatoryParams(const QCommandLineOption& a, const QCommandLineOption& b)
{
    if (m_parser.isSet(a) || m_parser.isSet(b))
        return true;
    print(QStringLiteral("Options [ ") + joinedNames(a) + QStringLiteral(" ] or [ ") +
          joinedNames(b) + QStringLiteral(" ] is mandatory.\n"));
    return false;
}

QStringList CommandBase::checkAllowValue(const QStringList& values,
                                         const QSet<QString>& allowed) const
{
    QStringList refused;
    for (const QString& value : values)
        if (!allowed.contains(value))
            refused.append(value);
    return refused;
}

void CommandBase::createLogInfo()
{
    const QStringList seen = m_parser.optionNames();
    for (const QString& name : seen)
        addToLogInfo(name);
}

void CommandBase::addToLogInfo(const QString& optionName)
{
    if (!m_parser.isSet(optionName))
        return;
    m_logInfo.append((optionName.size() == 1 ? QStringLiteral("-") : QStringLiteral("--")) +
                     optionName);
    m_logInfo.append(m_optionsForLog.contains(optionName)
                         ? m_parser.value(optionName).trimmed()
                         : QStringLiteral("****"));
}

} // namespace Orv::CLI
