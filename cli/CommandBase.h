#pragma once

#include <QCommandLineOption>
#include <QCommandLineParser>
#include <QMap>
#include <QObject>
#include <QSet>
#include <QSharedPointer>
#include <QStringList>
#include <QVariant>
#include <QVector>

namespace Orv::CLI {

// Base of every command and group: its name and one-line description, its
// option parser, the validation primitives that print the fixed messages, the
// masked log line, and the two signals by which a started command ends the run.
class CommandBase : public QObject
{
    Q_OBJECT
public:
    enum ShowSuccess { Show = 0, DontShow = 1 };
    Q_ENUM(ShowSuccess)

    // Dispatch codes returned by process().
    enum Code { HelpShown = 0, HelpShownNoWords = 1, Unknown = 2, Started = 4 };

    CommandBase(const QString& name, const QString& description, QObject* parent = nullptr,
                bool viewItemsHelp = true);

    virtual int process(const QStringList& words) = 0;
    virtual QString help() const;
    virtual bool viewItemsHelp() const;
    virtual QMap<QString, QSharedPointer<CommandBase>> subItems() const;

    QString name() const { return m_name; }
    QString helpMessage() const { return m_description; }
    QStringList logInfo() const { return m_logInfo; }

    void helpMessageExt() const;
    int exec(const QStringList& words);
    int execNoArgs(const QStringList& words);
    bool initProcess(const QStringList& words);

    void addOption(const QCommandLineOption& option, bool logValue = false);
    // The options this command takes, in the order its help lists them; the
    // completion and the manual page are generated from them.
    QList<QCommandLineOption> options() const { return m_options; }

    bool setOptionalOption(const QCommandLineOption& option, QVariant& out);
    bool setMandatoryOption(const QCommandLineOption& option, QVariant& out);
    bool setSwitchModeOption(const QCommandLineOption& option, QVariant& out, bool mandatory);
    bool setSwitchModeOption(const QCommandLineOption& option, bool mandatory);
    bool checkIncompatibleParams(const QCommandLineOption& a, const QCommandLineOption& b);
    bool checkMandatoryParams(const QCommandLineOption& a, const QCommandLineOption& b);
    QStringList checkAllowValue(const QStringList& values, const QSet<QString>& allowed) const;

    void createLogInfo();
    void addToLogInfo(const QString& optionName);

    static bool isHelpWord(const QString& word);
    // The padded "name - description" form shared by command and group lines.
    static QString listingLine(const QString& name, const QString& description);

    static const QString Help;
    static const QString Edit;
    static const QString Account;
    static const QMap<QString, bool> SwitchModeValue;
    static const QMap<bool, QString> SwitchModeName;
    static constexpr int maxCommandLength = 20;

signals:
    void finished(Orv::CLI::CommandBase::ShowSuccess show);
    void error(const QString& message);

protected:
    static QString joinedNames(const QCommandLineOption& option);
    // An option of this command alone: unlike addOption(), its names are not
    // taken as option words for the whole tree.
    void addLocalOption(const QCommandLineOption& option);

    QCommandLineParser m_parser;
    QMap<QString, QSharedPointer<CommandBase>> m_subItems;
    QStringList m_logInfo;

private:
    static QStringList& optionNames();

    static const QVector<QString> s_helpWords;
    static const QVector<QString> s_topLevelWords;
    // Names of this command's options whose values may be logged. Kept per
    // command: the same short name is a plain value in one command and a
    // secret in another.
    QStringList m_optionsForLog;
    QList<QCommandLineOption> m_options;
    QString m_name;
    QString m_description;
    bool m_viewItemsHelp = true;
};

} // namespace Orv::CLI

Q_DECLARE_METATYPE(Orv::CLI::CommandBase::ShowSuccess)
