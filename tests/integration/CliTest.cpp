#include "support/Sandbox.h"

#include <gtest/gtest.h>

using OrvTest::RunResult;
using OrvTest::Sandbox;

namespace {

const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";

// The top-level listing as the root prints it: one block per item in name
// order, "get", "set", "add" and "edit" collapsed to one line each.
const QByteArray kPlanItems =
    "\tcreate_backup        - create a new plan to backup files to storage\n"
    "\tcreate_restore       - create a new plan to restore files from storage\n"
    "\tdelete               - delete plan\n"
    "\tdetails              - get plan details\n"
    "\tedit_backup          - edit an existing backup plan\n"
    "\tedit_restore         - edit an existing restore plan\n"
    "\tlist                 - list all plan names and ids \n"
    "\tstart                - run custom plan now\n"
    "\tstop                 - stop plan now\n";

const QByteArray kFeedbackItems = "\tsave-log             - save error report\n"
                                  "\tsend-log             - send error report\n";

// The standalone tree; the managed one lacks check_update.
QByteArray rootItems(bool managed = false)
{
    return QByteArray("account <command> - account commands: \n"
                      "\tadd                  - add storage account\n"
                      "\tdelete               - delete storage account\n"
                      "\tedit                 - edit storage account\n"
                      "\tinfo                 - get storage account details\n"
                      "\tlist                 - list of existing storage accounts\n"
                      "\tsync                 - sync storage account\n"
                      "\n") +
           (managed ? "" : "check_update         - Check update of the current license.\n") +
           "config <command> - general settings: \n"
           "\texport               - export backup configuration to the specific file\n"
           "\tget                  - get the current value for a setting\n"
           "\timport               - import backup configuration from the file\n"
           "\tset                  - set a new value for a setting\n"
           "\n"
           "feedback <command> - feedback commands: \n" +
           kFeedbackItems + "\n" + "plan <command> - plan commands: \n" + kPlanItems + "\n" +
           "storage <command> - storage commands: \n"
           "\tdeep-sync            - storage deepsync\n"
           "\tdelete               - storage delete backup data\n"
           "\tlist                 - storage list\n"
           "\n"
           "version              - Show product version\n"
           "\n";
}
const QByteArray kRootItems = rootItems();

const QByteArray kUsageHint = "To see the help info about any command input:\n"
                              "orvV2 <command> -h(--help)\n";

void expectOutput(const RunResult& result, const QByteArray& out, int exitCode = 0)
{
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, QByteArray()) << "nothing may reach standard error";
}

} // namespace

TEST(Cli, NoWordsOrHelpPrintTheListingAndUsageHint)
{
    Sandbox sandbox;
    for (const QStringList& words : {QStringList{}, QStringList{QStringLiteral("help")}}) {
        SCOPED_TRACE(words.join(QLatin1Char(' ')).toStdString());
        expectOutput(sandbox.run(words), kBanner + kRootItems + kUsageHint);
    }
}

TEST(Cli, HelpWordsAtTheRootGoToTheRootGroup)
{
    Sandbox sandbox;
    for (const char* word : {"-h", "--help"})
        expectOutput(sandbox.run({QLatin1String(word)}), kBanner + kRootItems + "\n");
    // "help" counts as the top-level help word only on its own.
    expectOutput(sandbox.run({QStringLiteral("help"), QStringLiteral("plan")}),
                 kBanner + kRootItems + "\n");
}

TEST(Cli, ManagedInstallationRunsItsOwnTree)
{
    Sandbox sandbox;
    sandbox.setManaged(true);
    expectOutput(sandbox.run({}), kBanner + rootItems(true) + kUsageHint);
    expectOutput(sandbox.run({QStringLiteral("version")}),
                 kBanner + "Version: " + QByteArray(ORV_VERSION_FOR_TESTS) + "\n\n");
}

TEST(Cli, VersionPrintsTheBuildVersionAndItsHelp)
{
    Sandbox sandbox;
    expectOutput(sandbox.run({QStringLiteral("version")}),
                 kBanner + "Version: " + QByteArray(ORV_VERSION_FOR_TESTS) + "\n\n");
    const RunResult help = sandbox.run({QStringLiteral("version"), QStringLiteral("-h")});
    EXPECT_EQ(help.exitCode, 0);
    EXPECT_TRUE(help.out.startsWith(kBanner + "version  - Show product version\nUsage: "))
        << help.out.constData();
}

TEST(Cli, GroupWithoutWordsOrWithHelpWordShowsItsListing)
{
    Sandbox sandbox;
    expectOutput(sandbox.run({QStringLiteral("feedback")}), kBanner + kFeedbackItems + "\n\n");
    expectOutput(sandbox.run({QStringLiteral("plan")}), kBanner + kPlanItems + "\n\n");
    expectOutput(sandbox.run({QStringLiteral("plan"), QStringLiteral("-h")}),
                 kBanner + kPlanItems + "\n\n");
}

TEST(Cli, UnknownWordsAreReportedAndExitZero)
{
    Sandbox sandbox;
    const QByteArray unknown = kBanner + "\nUnknown command.\n\n";
    expectOutput(sandbox.run({QStringLiteral("frobnicate")}), unknown);
    expectOutput(sandbox.run({QStringLiteral("Plan")}), unknown);
    expectOutput(sandbox.run({QStringLiteral("plan"), QStringLiteral("frobnicate")}), unknown);
    expectOutput(sandbox.run({QStringLiteral("--frob")}), unknown);
}

TEST(Cli, DiagnosticsGoOnlyToTheLogFile)
{
    Sandbox sandbox;
    const RunResult result = sandbox.run({QStringLiteral("version")});
    EXPECT_EQ(result.err, QByteArray());
    const QByteArray log = sandbox.readFile(QStringLiteral("logs/CommandLineV2.log"));
    EXPECT_TRUE(log.contains("Command: version")) << log.constData();
    EXPECT_FALSE(result.out.contains("Command:"));
}

TEST(Cli, BrandingOverridesTheProductName)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("config/branding.conf"),
                      "[General]\nProductName=Acme Vault\n");
    const RunResult result = sandbox.run({QStringLiteral("version")});
    EXPECT_TRUE(result.out.startsWith("Acme Vault Command Line Interface started\n"));
}

TEST(Cli, CorruptInstallationFilesFallBackToDefaults)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("config/orvclient.conf"), QByteArray("\x00\xff[[[", 5));
    sandbox.writeFile(QStringLiteral("config/branding.conf"), "=\n[General\nProductName");
    expectOutput(sandbox.run({QStringLiteral("version")}),
                 kBanner + "Version: " + QByteArray(ORV_VERSION_FOR_TESTS) + "\n\n");
}
