// The fixture every integration test stands on: if it misreports an exit
// status or lets a hung program hang the suite, every other verdict is wrong.

#include "support/Sandbox.h"

#include <QDir>
#include <gtest/gtest.h>
#include <signal.h>

using OrvTest::RunResult;
using OrvTest::Sandbox;

TEST(Sandbox, RunReportsStatusOutputAndEnvironmentFaithfully)
{
    Sandbox sandbox;
    const auto sh = [&](const QString& script, const QByteArray& input = {},
                        int timeoutMs = 30000) {
        return sandbox.runBinary(QStringLiteral("sh"), {QStringLiteral("-c"), script}, input, {},
                                 timeoutMs);
    };

    const RunResult echoed = sh(QStringLiteral("cat; printf oops >&2; exit 3"), "in\n");
    EXPECT_EQ(echoed.exitCode, 3);
    EXPECT_EQ(echoed.out, QByteArray("in\n"));
    EXPECT_EQ(echoed.err, QByteArray("oops"));

    // Programs run inside the instance, with ORV_ROOT pointing at it.
    const RunResult where = sh(QStringLiteral("printf '%s|%s' \"$ORV_ROOT\" \"$PWD\""));
    EXPECT_EQ(where.out, (sandbox.root() + QLatin1Char('|') + sandbox.root()).toUtf8());
    QProcessEnvironment extra;
    extra.insert(QStringLiteral("ORV_TEST_VALUE"), QStringLiteral("42"));
    EXPECT_EQ(
        sandbox
            .runBinary(QStringLiteral("sh"),
                       {QStringLiteral("-c"), QStringLiteral("printf %s \"$ORV_TEST_VALUE\"")}, {},
                       extra)
            .out,
        QByteArray("42"));

    EXPECT_EQ(sh(QStringLiteral("kill -SEGV $$")).exitCode, -1);
    const RunResult hung = sh(QStringLiteral("exec sleep 30"), {}, 200);
    EXPECT_EQ(hung.exitCode, -2);
    EXPECT_TRUE(hung.err.contains("killed"));
    EXPECT_EQ(sandbox.runBinary(QStringLiteral("/nonexistent/program"), {}).exitCode, -1);
}

TEST(Sandbox, FilesStayInsideTheInstance)
{
    Sandbox sandbox;
    for (const char* folder : {"config", "logs", "data", "run"})
        EXPECT_TRUE(QDir(sandbox.path(QLatin1String(folder))).exists()) << folder;
    sandbox.writeFile(QStringLiteral("config/plans/deep/a.xml"), "<Plan/>");
    EXPECT_EQ(sandbox.readFile(QStringLiteral("config/plans/deep/a.xml")), QByteArray("<Plan/>"));
    EXPECT_TRUE(sandbox.readFile(QStringLiteral("config/missing")).isEmpty());

    sandbox.setManaged(true);
    EXPECT_TRUE(
        sandbox.readFile(QStringLiteral("config/orvclient.conf")).contains("edition=managed"));
    sandbox.setManaged(false);
    EXPECT_TRUE(
        sandbox.readFile(QStringLiteral("config/orvclient.conf")).contains("edition=standalone"));
}

TEST(Sandbox, ServiceStartsOnceAndStopsWithItsStatus)
{
    Sandbox sandbox;
    EXPECT_EQ(sandbox.servicePid(), 0);
    ASSERT_TRUE(sandbox.startService());
    const qint64 pid = sandbox.servicePid();
    EXPECT_GT(pid, 0);
    EXPECT_TRUE(OrvTest::waitForSocket(sandbox.socketPath(), 1000));
    // Starting again while it runs keeps the running one.
    EXPECT_TRUE(sandbox.startService());
    EXPECT_EQ(sandbox.servicePid(), pid);
    EXPECT_EQ(sandbox.stopService(), 0);
    EXPECT_EQ(sandbox.servicePid(), 0);

    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(sandbox.stopService(SIGKILL), -1);
    // Held stopped, it still gets the signal it is sent.
    ASSERT_TRUE(sandbox.startService());
    ::kill(static_cast<pid_t>(sandbox.servicePid()), SIGSTOP);
    EXPECT_EQ(sandbox.stopService(SIGTERM), 0);
}
