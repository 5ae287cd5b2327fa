#include "StdoutCapture.h"

#include "CommandBase.h"
#include "CommandGroupBase.h"
#include "CommonHelpers.h"

#include <gtest/gtest.h>

using Orv::CLI::CommandBase;
using Orv::CLI::CommandGroupBase;

namespace {

// A command with one option of each kind the primitives deal with.
class ProbeCommand : public CommandBase
{
public:
    explicit ProbeCommand(const QString& name = QStringLiteral("probe"))
        : CommandBase(name, QStringLiteral("probe things"))
    {
        addOption(path);
        addOption(password);
        addOption(compress);
        addOption(id, true);
        addOption(label, true);
    }

    int process(const QStringList& words) override { return exec(words); }

    QCommandLineOption path{QStringList{QStringLiteral("p"), QStringLiteral("path")},
                            QStringLiteral("Path"), QStringLiteral("path")};
    QCommandLineOption password{QStringLiteral("password"), QStringLiteral("Password"),
                                QStringLiteral("password")};
    QCommandLineOption compress{QStringLiteral("compress"), QStringLiteral("Compression"),
                                QStringLiteral("mode")};
    QCommandLineOption id{QStringLiteral("id"), QStringLiteral("Id"), QStringLiteral("id")};
    QCommandLineOption label{QStringLiteral("label"), QStringLiteral("Label"),
                             QStringLiteral("text")};
};

struct Parsed
{
    bool accepted;
    QByteArray printed;
};

Parsed parse(ProbeCommand& command, const QStringList& words)
{
    StdoutCapture capture;
    const bool accepted = command.initProcess(words);
    return {accepted, capture.take()};
}

} // namespace

TEST(CommandBase, MandatoryAndOptionalValuesAreTrimmedAndMissingOnesNamed)
{
    ProbeCommand command;
    ASSERT_TRUE(parse(command, {QStringLiteral("--label"), QStringLiteral("  x y  ")}).accepted);

    QVariant value;
    StdoutCapture capture;
    EXPECT_TRUE(command.setOptionalOption(command.label, value));
    EXPECT_EQ(value.toString(), QStringLiteral("x y"));
    QVariant untouched(QStringLiteral("keep"));
    EXPECT_TRUE(command.setOptionalOption(command.id, untouched));
    EXPECT_EQ(untouched.toString(), QStringLiteral("keep"));
    EXPECT_FALSE(command.setMandatoryOption(command.path, value));
    EXPECT_EQ(capture.take(), QByteArray("Option [ p,path ] is mandatory.\n"));
}

TEST(CommandBase, SwitchValuesAreExactWords)
{
    for (const char* bad : {"True", "yes", " true", ""}) {
        ProbeCommand command;
        ASSERT_TRUE(parse(command, {QStringLiteral("--compress"), QLatin1String(bad)}).accepted);
        StdoutCapture capture;
        QVariant out;
        EXPECT_FALSE(command.setSwitchModeOption(command.compress, out, false)) << bad;
        EXPECT_EQ(capture.take(), QByteArray("Options [ compress ] must be 'true' or 'false'.\n"));
    }
    ProbeCommand command;
    ASSERT_TRUE(parse(command, {QStringLiteral("--compress"), QStringLiteral("false")}).accepted);
    QVariant out;
    EXPECT_TRUE(command.setSwitchModeOption(command.compress, out, true));
    EXPECT_EQ(out, QVariant(false));

    ProbeCommand missing;
    ASSERT_TRUE(parse(missing, {QStringLiteral("--id"), QStringLiteral("1")}).accepted);
    StdoutCapture capture;
    EXPECT_TRUE(missing.setSwitchModeOption(missing.compress, false));
    EXPECT_FALSE(missing.setSwitchModeOption(missing.compress, true));
    EXPECT_EQ(capture.take(), QByteArray("Options [ compress ] is mandatory.\n"));
}

TEST(CommandBase, PairRulesPrintBothOptionNames)
{
    ProbeCommand both;
    ASSERT_TRUE(parse(both, {QStringLiteral("--id"), QStringLiteral("1"), QStringLiteral("-p"),
                             QStringLiteral("/x")})
                    .accepted);
    ProbeCommand neither;
    ASSERT_TRUE(parse(neither, {QStringLiteral("--label"), QStringLiteral("l")}).accepted);

    StdoutCapture capture;
    EXPECT_FALSE(both.checkIncompatibleParams(both.id, both.path));
    EXPECT_TRUE(both.checkMandatoryParams(both.id, both.path));
    EXPECT_TRUE(neither.checkIncompatibleParams(neither.id, neither.path));
    EXPECT_FALSE(neither.checkMandatoryParams(neither.id, neither.path));
    EXPECT_EQ(capture.take(), QByteArray("Options [ id ] and [ p,path ] are incompatible.\n"
                                         "Options [ id ] or [ p,path ] is mandatory.\n"));
}

TEST(CommandBase, ParserRejectsUnknownOptionsAndBareOptionNames)
{
    ProbeCommand command;
    const Parsed unknown = parse(command, {QStringLiteral("--frob")});
    EXPECT_FALSE(unknown.accepted);
    EXPECT_EQ(unknown.printed, QByteArray("Unknown option 'frob'.\n"));

    // Any option name of the whole tree counts, not only this command's.
    ProbeCommand other;
    ProbeCommand second(QStringLiteral("second"));
    const Parsed bare = parse(second, {QStringLiteral("label")});
    EXPECT_FALSE(bare.accepted);
    EXPECT_EQ(bare.printed, QByteArray("Missing ('-','--') before option [label]\n"));

    ProbeCommand plain;
    EXPECT_TRUE(parse(plain, {QStringLiteral("some-file")}).accepted);
}

TEST(CommandBase, LogLineMasksValuesUnlessRegisteredForLogging)
{
    ProbeCommand command;
    ASSERT_TRUE(parse(command, {QStringLiteral("--password"), QStringLiteral("s3cret"),
                                QStringLiteral("-p"), QStringLiteral("/data"),
                                QStringLiteral("--id"), QStringLiteral(" 42 ")})
                    .accepted);
    EXPECT_EQ(command.logInfo(),
              QStringList({QStringLiteral("--password"), QStringLiteral("****"),
                           QStringLiteral("-p"), QStringLiteral("****"), QStringLiteral("--id"),
                           QStringLiteral("42")}));
    EXPECT_FALSE(command.logInfo().join(QLatin1Char(' ')).contains(QLatin1String("s3cret")));
}

TEST(CommandBase, SingleDashWordsAreLongOptions)
{
    ProbeCommand command;
    ASSERT_TRUE(parse(command, {QStringLiteral("-label"), QStringLiteral("v")}).accepted);
    QVariant value;
    EXPECT_TRUE(command.setOptionalOption(command.label, value));
    EXPECT_EQ(value.toString(), QStringLiteral("v"));
}

TEST(CommandBase, CheckAllowValueKeepsRefusedInInputOrder)
{
    ProbeCommand command;
    EXPECT_EQ(command.checkAllowValue({QStringLiteral("a"), QStringLiteral("b"),
                                       QStringLiteral("c")},
                                      {QStringLiteral("b")}),
              QStringList({QStringLiteral("a"), QStringLiteral("c")}));
}

TEST(CommandBase, HelpLinePadsToTheColumnUnlessTheNameIsLong)
{
    EXPECT_EQ(ProbeCommand(QStringLiteral("list")).help(),
              QStringLiteral("\tlist                 - probe things"));
    EXPECT_EQ(ProbeCommand(QStringLiteral("a-name-of-twenty-chr")).help(),
              QStringLiteral("\ta-name-of-twenty-chr - probe things"));
    EXPECT_EQ(ProbeCommand(QStringLiteral("version")).help(),
              QStringLiteral("version              - probe things"));
}

TEST(CommandBase, ExecShowsHelpForHelpWordsAndNoWords)
{
    ProbeCommand command;
    StdoutCapture capture;
    EXPECT_EQ(command.exec({}), CommandBase::HelpShownNoWords);
    EXPECT_EQ(command.exec({QStringLiteral("-h")}), CommandBase::HelpShownNoWords);
    EXPECT_EQ(command.execNoArgs({QStringLiteral("--help")}), CommandBase::HelpShown);
    EXPECT_EQ(command.execNoArgs({}), CommandBase::Started);
    const QByteArray printed = capture.take();
    EXPECT_TRUE(printed.startsWith("probe  - probe things\nUsage: ")) << printed.constData();
    EXPECT_EQ(printed.count("probe  - probe things\n"), 3);
}

TEST(CommandGroupBase, ListingIsSortedAndCollapsesSettingGroups)
{
    auto root = QSharedPointer<CommandGroupBase>::create(QString(), QString());
    auto plan = QSharedPointer<CommandGroupBase>::create(QStringLiteral("plan"),
                                                         QStringLiteral("plan commands"));
    plan->addSubItem(QSharedPointer<ProbeCommand>::create(QStringLiteral("start")));
    plan->addSubItem(QSharedPointer<ProbeCommand>::create(QStringLiteral("delete")));
    auto config = QSharedPointer<CommandGroupBase>::create(QStringLiteral("config"),
                                                           QStringLiteral("general settings"));
    auto get = QSharedPointer<CommandGroupBase>::create(QStringLiteral("get"),
                                                        QStringLiteral("get a setting"));
    get->addSubItem(QSharedPointer<ProbeCommand>::create(QStringLiteral("threadcount")));
    config->addSubItem(get);
    root->addSubItem(plan);
    root->addSubItem(config);
    root->addSubItem(QSharedPointer<ProbeCommand>::create(QStringLiteral("version")));
    root->addSubItem(QSharedPointer<CommandGroupBase>::create(
        QStringLiteral("hidden"), QStringLiteral("never listed"), nullptr, false));

    StdoutCapture capture;
    root->subitemsHelp(root);
    EXPECT_EQ(capture.take(), QByteArray("config <command> - general settings: \n"
                                         "\tget                  - get a setting\n"
                                         "\n"
                                         "plan <command> - plan commands: \n"
                                         "\tdelete               - probe things\n"
                                         "\tstart                - probe things\n"
                                         "\n"
                                         "version              - probe things\n"
                                         "\n"));
}

TEST(CommandGroupBase, DispatchIsCaseSensitiveAndGathersLogWords)
{
    CommandGroupBase plan(QStringLiteral("plan"), QStringLiteral("plan commands"));
    auto start = QSharedPointer<ProbeCommand>::create(QStringLiteral("start"));
    plan.addSubItem(start);

    StdoutCapture capture;
    EXPECT_EQ(plan.process({QStringLiteral("Start")}), CommandBase::Unknown);
    EXPECT_EQ(plan.process({}), CommandBase::HelpShownNoWords);
    EXPECT_EQ(plan.process({QStringLiteral("help")}), CommandBase::HelpShown);
    EXPECT_EQ(plan.process({QStringLiteral("start"), QStringLiteral("--id"), QStringLiteral("7")}),
              CommandBase::Started);
    capture.take();
    EXPECT_EQ(plan.logInfo(), QStringList({QStringLiteral("start"), QStringLiteral("--id"),
                                           QStringLiteral("7")}));
}

TEST(CommonHelpers, YesNoWordsInAnyCaseAndOtherWordsKeepTheDefault)
{
    using Orv::CLI::CommonHelpers::GetBoolFromString;
    StdoutCapture capture;
    bool ok = true;
    EXPECT_TRUE(GetBoolFromString(QStringLiteral("YES"), false, &ok));
    EXPECT_FALSE(GetBoolFromString(QStringLiteral("False"), true, &ok));
    EXPECT_TRUE(GetBoolFromString(QString(), true, &ok));
    EXPECT_TRUE(ok);
    EXPECT_TRUE(GetBoolFromString(QStringLiteral("maybe"), true, &ok,
                                  QStringLiteral("compression")));
    EXPECT_FALSE(ok);
    EXPECT_FALSE(GetBoolFromString(QStringLiteral("1"), false));
    EXPECT_EQ(capture.take(), QByteArray("Wrong compression value specified: maybe\n"
                                         "Wrong yes/no value specified: 1\n"));
}
