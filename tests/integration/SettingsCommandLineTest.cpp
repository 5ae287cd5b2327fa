#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <thread>

using OrvTest::RunResult;
using OrvTest::Sandbox;

namespace {

const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";
const QString kStore = QStringLiteral("config/defaultSettings.conf");

RunResult config(Sandbox& sandbox, const QString& line)
{
    return sandbox.run(QStringList{QStringLiteral("config")} +
                       line.split(QLatin1Char(' '), Qt::SkipEmptyParts));
}

void expectRun(const RunResult& result, const QByteArray& out, int exitCode)
{
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.out, kBanner + out);
    EXPECT_EQ(result.err, QByteArray());
}

QJsonObject storeOf(const Sandbox& sandbox)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(sandbox.readFile(kStore), &error);
    EXPECT_EQ(error.error, QJsonParseError::NoError) << sandbox.readFile(kStore).constData();
    return document.object();
}

// Waits (at most 10 s) until the file holds the text.
bool waitForText(const Sandbox& sandbox, const QString& file, const QByteArray& text)
{
    const QDeadlineTimer deadline(10000);
    while (!sandbox.readFile(file).contains(text)) {
        if (deadline.hasExpired())
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

} // namespace

TEST(SettingsCommandLine, ValuesSetByOneRunAreShownByTheNext)
{
    Sandbox sandbox;
    expectRun(config(sandbox, QStringLiteral("get threadcount")), "Thread count: 5", 0);
    expectRun(config(sandbox, QStringLiteral("set threadcount -v 4")), "\nSuccess.\n", 0);
    expectRun(config(sandbox, QStringLiteral("get threadcount")), "Thread count: 4", 0);
    expectRun(config(sandbox, QStringLiteral("set threadcount -v 101")),
              "Wrong thread count value specified\nCan't save values\n\n", 255);
    expectRun(config(sandbox, QStringLiteral("set bandwidthcloud -l U")), "\nSuccess.\n", 0);
    expectRun(config(sandbox, QStringLiteral("get bandwidthcloud")), "Cloud bandwidth: Unlimited\n",
              0);
    EXPECT_EQ(storeOf(sandbox).value(QStringLiteral("Cloud Bandwidth")).toString(),
              QStringLiteral("-1"));

    // A get command has no options: the parser reports the word and ends the run.
    const RunResult extra = config(sandbox, QStringLiteral("get threadcount -v 5"));
    EXPECT_EQ(extra.exitCode, 1);
    EXPECT_EQ(extra.err, QByteArray("orvV2: Unknown option 'v'.\n"));
}

// Shown as defaults, with a warning on stderr that says so and where, while
// stdout stays as it is.
void expectDefaultsShown(Sandbox& sandbox, const QByteArray& warning)
{
    const RunResult result = config(sandbox, QStringLiteral("get queuesize"));
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, kBanner + "Queue size: 2000");
    if (warning.isEmpty())
        EXPECT_EQ(result.err, QByteArray());
    else
        EXPECT_EQ(result.err,
                  "Warning: the settings file " + QFile::encodeName(sandbox.path(kStore)) +
                      warning + "; the values shown are the defaults" +
                      (warning.contains("damaged") ? ". The next change keeps it as " +
                                                         QFile::encodeName(sandbox.path(kStore)) +
                                                         ".corrupt and starts anew.\n"
                                                   : ".\n"));
}

TEST(SettingsCommandLine, DamagedStoreFilesShowDefaultsAndRefuseToBeOverwrittenBlindly)
{
    Sandbox sandbox;
    for (const auto& [content, warning] : std::initializer_list<std::pair<QByteArray, QByteArray>>{
             {QByteArray(), QByteArray()},
             {"{\"MultiThread threads", " is damaged"},
             {QByteArray("\xff\xfe\x00garbage", 10), " is damaged"}}) {
        sandbox.writeFile(kStore, content);
        expectDefaultsShown(sandbox, warning);
    }
    // The damaged file is replaced whole by the next change, and kept aside.
    expectRun(config(sandbox, QStringLiteral("set queuesize -v 7")), "\nSuccess.\n", 0);
    EXPECT_EQ(storeOf(sandbox).value(QStringLiteral("Glacier queue size")).toString(),
              QStringLiteral("7"));
    EXPECT_TRUE(sandbox.exists(kStore + QStringLiteral(".corrupt")));

    // A store that cannot be read is shown as defaults and never written over.
    QFile::remove(sandbox.path(kStore));
    QDir().mkpath(sandbox.path(kStore));
    expectDefaultsShown(sandbox, " cannot be read");
    expectRun(config(sandbox, QStringLiteral("set queuesize -v 8")), "Can't save values\n\n", 255);
    expectRun(config(sandbox, QStringLiteral("set logging --rotation 3")), "Can't save values\n\n",
              255);
    EXPECT_TRUE(QFileInfo(sandbox.path(kStore)).isDir());
}

TEST(SettingsCommandLine, RunningServiceFollowsLoggingAndRetryChanges)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    const QString moved = sandbox.path(QStringLiteral("moved-logs"));
    expectRun(
        config(sandbox, QStringLiteral("set logging --mode debug --rotation 9 --path ") + moved),
        "Logging mode is set to: Debug\nLogging rotation timeout is set to: 9 day(s)\n"
        "Logging path is set to: " +
            moved.toUtf8() + "\n\nSuccess.\n",
        0);
    EXPECT_TRUE(
        waitForText(sandbox, QStringLiteral("logs/orvd.log"),
                    "Logging changes to level Debug rotation 9 day(s) in " + moved.toUtf8()));
    EXPECT_TRUE(
        waitForText(sandbox, QStringLiteral("moved-logs/orvd.log"), "Logging here at level Debug"));

    expectRun(
        config(sandbox, QStringLiteral("set connection --retry-count 3 --retry-interval 1500")),
        "Connection retry count is set to: 3.\nConnection retry interval is set to: 1500 "
        "(msec).\n\nSuccess.\n",
        0);
    EXPECT_TRUE(
        waitForText(sandbox, QStringLiteral("moved-logs/orvd.log"),
                    "Connection retries now 3 attempt(s), 1500 ms apart; checking certificates"));
    EXPECT_EQ(sandbox.stopService(), 0);
}
