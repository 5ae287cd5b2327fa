#pragma once

#include "CommandBase.h"

namespace Orv::CLI {

// Whether a setting command shows the current value or changes it.
enum class SettingCommandType
{
    Get = 0,
    Set = 1
};

// One global setting of the client. The same class serves "config get" and
// "config set"; the type given at construction decides which. Settings write
// the settings store themselves: nothing goes to the service.
class BaseSetting : public CommandBase
{
    Q_OBJECT
public:
    BaseSetting(const QString& name, const QString& description, SettingCommandType type,
                QObject* parent = nullptr);

    // Parses the words; 1 when help was shown, 2 when a set command's words do
    // not parse, 4 to go on. A get command takes no options: the parser's own
    // handling reports anything unexpected and ends the process.
    int process(const QStringList& args) override;

    // Shows or changes the setting, after noting the options for the log.
    bool exec();
    // Reports a failed write; gives back ok.
    bool outputResult(bool ok);

    SettingCommandType type() const { return m_type; }
    bool isSet() const { return m_type == SettingCommandType::Set; }

protected:
    // Validates and writes; prints its own messages.
    virtual bool setOption() = 0;
    // Reads and prints.
    virtual bool getOption() = 0;
    // Reads the set command's options into their values after parsing; false,
    // after the message, when they cannot be used.
    virtual bool readOptions() { return true; }

    // The whole run of a setting: parse, read the options, show or change,
    // then end by signal.
    int run(const QStringList& args);
    // Options exist only in set commands.
    void registerOption(const QCommandLineOption& option, bool logValue = true);
    // Whether the option was given on the command line.
    bool given(const QCommandLineOption& option) const { return m_parser.isSet(option); }

    static QString stateName(bool enabled);

private:
    // A get shows defaults for a store it cannot use; it says so on stderr.
    static void warnIfStoreUnusable();

    SettingCommandType m_type;
};

} // namespace Orv::CLI
