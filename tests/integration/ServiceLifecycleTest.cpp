// The service's life as an administrator and systemd see it: start, stop on a
// signal, one instance per folder, recovery after a crash, and refusal to
// start on a database it cannot use.

#include "integration/ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "support/Sandbox.h"

#include <QFileInfo>
#include <QJsonArray>
#include <csignal>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
namespace Format = Orv::Common::Communication::Commands::Format;

namespace {

const QString kSocket = QStringLiteral("run/orvd.sock");
const QString kPidFile = QStringLiteral("run/orvd.pid");

mode_t modeOf(const QString& path)
{
    struct stat status
    {
    };
    if (::lstat(QFile::encodeName(path).constData(), &status) != 0)
        return 0;
    return status.st_mode;
}

// True when the service answers a plan list request on the socket.
bool answers(const Sandbox& sandbox)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    return reply && reply->value(QLatin1String(Format::Header::Status::Key)).toString() ==
                        QLatin1String(Format::Header::Status::Value::Success);
}

} // namespace

TEST(ServiceLifecycle, StopsCleanlyOnTermAndInt)
{
    for (const int signalNumber : {SIGTERM, SIGINT}) {
        SCOPED_TRACE(signalNumber);
        Sandbox sandbox;
        ASSERT_TRUE(sandbox.startService());
        const mode_t socketMode = modeOf(sandbox.path(kSocket));
        EXPECT_TRUE(S_ISSOCK(socketMode));
        EXPECT_EQ(socketMode & 07777, 0600u);
        EXPECT_EQ(modeOf(sandbox.path(QStringLiteral("run"))) & 07777, 0700u);
        EXPECT_EQ(sandbox.readFile(kPidFile).trimmed().toLongLong(), sandbox.servicePid());
        EXPECT_TRUE(answers(sandbox));

        EXPECT_EQ(sandbox.stopService(signalNumber), 0);
        EXPECT_FALSE(sandbox.exists(kSocket));
        EXPECT_FALSE(sandbox.exists(kPidFile));
        // The write-ahead log goes away only when the database is closed properly.
        EXPECT_TRUE(sandbox.exists(QStringLiteral("data/orv.db")));
        EXPECT_FALSE(sandbox.exists(QStringLiteral("data/orv.db-wal")));
        EXPECT_TRUE(sandbox.readFile(QStringLiteral("logs/orvd.log")).contains("Stopping on SIG"));
        EXPECT_TRUE(sandbox.readFile(QStringLiteral("logs/orvd.console.log")).isEmpty());
    }
}

TEST(ServiceLifecycle, SecondInstanceIsRefusedAndTheFirstKeepsServing)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());

    const OrvTest::RunResult second = sandbox.runBinary(QStringLiteral("orvd"), {}, {}, {}, 10000);
    EXPECT_NE(second.exitCode, 0);
    EXPECT_TRUE(second.err.contains("already running")) << second.err.toStdString();
    EXPECT_TRUE(second.out.isEmpty());

    EXPECT_TRUE(sandbox.exists(kSocket));
    EXPECT_EQ(sandbox.readFile(kPidFile).trimmed().toLongLong(), sandbox.servicePid());
    EXPECT_TRUE(answers(sandbox));
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(ServiceLifecycle, StartsAgainAfterBeingKilled)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(sandbox.stopService(SIGKILL), -1);
    // Left behind: a socket nobody answers on, and a pid file nobody holds.
    ASSERT_TRUE(sandbox.exists(kSocket));
    ASSERT_TRUE(sandbox.exists(kPidFile));

    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(sandbox.readFile(kPidFile).trimmed().toLongLong(), sandbox.servicePid());
    EXPECT_TRUE(answers(sandbox));
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(ServiceLifecycle, DoesNotTakeOverASocketSomeoneElseServes)
{
    Sandbox sandbox;
    const QByteArray path = QFile::encodeName(sandbox.socketPath());
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::memcpy(address.sun_path, path.constData(), static_cast<size_t>(path.size()));
    const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
    ASSERT_EQ(::listen(listener, 4), 0);

    const OrvTest::RunResult run = sandbox.runBinary(QStringLiteral("orvd"), {}, {}, {}, 10000);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.err.contains("already running")) << run.err.toStdString();
    EXPECT_TRUE(sandbox.exists(kSocket));
    EXPECT_FALSE(sandbox.exists(kPidFile));
    ::close(listener);

    // Something that is not a socket is not removed either.
    ::unlink(path.constData());
    sandbox.writeFile(kSocket, "not a socket");
    const OrvTest::RunResult blocked = sandbox.runBinary(QStringLiteral("orvd"), {}, {}, {}, 10000);
    EXPECT_NE(blocked.exitCode, 0);
    EXPECT_TRUE(blocked.err.contains("not a socket")) << blocked.err.toStdString();
    EXPECT_EQ(sandbox.readFile(kSocket), QByteArray("not a socket"));
}

TEST(ServiceLifecycle, UnusableDatabaseStopsTheStartWithAnError)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("data/orv.db"), QByteArray(4096, 'x'));

    const OrvTest::RunResult run = sandbox.runBinary(QStringLiteral("orvd"), {}, {}, {}, 10000);
    EXPECT_NE(run.exitCode, 0);
    EXPECT_TRUE(run.err.contains("database")) << run.err.toStdString();
    EXPECT_FALSE(sandbox.exists(kSocket));
    EXPECT_FALSE(sandbox.exists(kPidFile));
    EXPECT_TRUE(
        sandbox.readFile(QStringLiteral("logs/orvd.log")).contains("Cannot open the database"));
    EXPECT_EQ(sandbox.readFile(QStringLiteral("data/orv.db")), QByteArray(4096, 'x'));
}
