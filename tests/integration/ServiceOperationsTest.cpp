// The service as an administrator runs it under systemd: readiness, reloads and
// stops reported on NOTIFY_SOCKET, SIGHUP re-reading the configuration and
// reopening a rotated log, folders made private, and start-up problems named
// with their cause.

#include "integration/ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QProcess>
#include <csignal>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

using OrvTest::Sandbox;
namespace Format = Orv::Common::Communication::Commands::Format;

namespace {

bool answers(const Sandbox& sandbox)
{
    OrvTest::ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    return reply && reply->value(QLatin1String(Format::Header::Status::Key)).toString() ==
                        QLatin1String(Format::Header::Status::Value::Success);
}

mode_t permissionsOf(const QString& path)
{
    struct stat status
    {
    };
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_mode & 07777 : 0;
}

// The systemd end of NOTIFY_SOCKET: a datagram socket the service writes its
// state to.
class NotifyListener
{
public:
    explicit NotifyListener(const QString& path) : m_path(path)
    {
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const QByteArray encoded = QFile::encodeName(path);
        std::memcpy(address.sun_path, encoded.constData(), static_cast<size_t>(encoded.size()));
        m_fd = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        if (m_fd < 0 ||
            ::bind(m_fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0)
            ADD_FAILURE() << "cannot bind " << path.toStdString();
    }
    ~NotifyListener() { ::close(m_fd); }

    // The next message, or an empty one after 10 s of silence.
    QByteArray next()
    {
        pollfd waiting{m_fd, POLLIN, 0};
        if (::poll(&waiting, 1, 10000) != 1)
            return {};
        char buffer[4096];
        const ssize_t size = ::recv(m_fd, buffer, sizeof(buffer), 0);
        return size > 0 ? QByteArray(buffer, static_cast<int>(size)) : QByteArray();
    }

    // Reads messages until one holds the line; false when none did in time.
    bool waitFor(const QByteArray& line)
    {
        for (;;) {
            const QByteArray message = next();
            if (message.isEmpty())
                return false;
            m_seen.append(message);
            if (message.split('\n').contains(line))
                return true;
        }
    }
    QByteArrayList seen() const { return m_seen; }

private:
    QString m_path;
    int m_fd = -1;
    QByteArrayList m_seen;
};

// Another user than the service's cannot use its socket: the command line
// says which socket and whom it answers, not the socket layer's bare words.
TEST(ServiceOperations, AnotherUserIsToldWhichSocketAndWhomItAnswers)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    ASSERT_EQ(::chmod(QFile::encodeName(sandbox.root()).constData(), 0755), 0);
    const OrvTest::RunResult result = sandbox.runBinary(
        QStringLiteral("runuser"), {"-u", "orvtest", "--", "env", "ORV_ROOT=" + sandbox.root(),
                                    QStringLiteral(ORV_BIN_DIR) + "/orvV2", "account", "list"});
    EXPECT_EQ(result.exitCode, 255) << result.err.constData();
    EXPECT_TRUE(result.out.contains("Cannot reach the backup service at " +
                                    QFile::encodeName(sandbox.root()) +
                                    "/run/orvd.sock: permission denied"))
        << result.out.constData();
}

} // namespace

TEST(ServiceOperations, HangUpReloadsAndReopensTheLogAndSystemdHearsEveryStep)
{
    Sandbox sandbox;
    // Folders as an older version or a package left them: open to all.
    for (const char* folder : {"config", "data", "logs", "run"})
        ASSERT_EQ(::chmod(QFile::encodeName(sandbox.path(QLatin1String(folder))).constData(), 0755),
                  0);
    NotifyListener systemd(sandbox.path(QStringLiteral("notify.sock")));
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("NOTIFY_SOCKET"),
                       sandbox.path(QStringLiteral("notify.sock")));
    sandbox.setServiceEnvironment(environment);
    ASSERT_TRUE(sandbox.startService());
    ASSERT_TRUE(systemd.waitFor("READY=1")) << systemd.seen().join('|').toStdString();
    EXPECT_TRUE(answers(sandbox));
    for (const char* folder : {"config", "data", "logs", "run"})
        EXPECT_EQ(permissionsOf(sandbox.path(QLatin1String(folder))), 0700u) << folder;

    // An outside rotation: the file is renamed, a new edition is written, and
    // the service is told with SIGHUP.
    ASSERT_EQ(
        ::rename(QFile::encodeName(sandbox.path(QStringLiteral("logs/orvd.log"))).constData(),
                 QFile::encodeName(sandbox.path(QStringLiteral("logs/orvd.log.1"))).constData()),
        0);
    sandbox.setManaged(true);
    ASSERT_EQ(::kill(static_cast<pid_t>(sandbox.servicePid()), SIGHUP), 0);
    EXPECT_TRUE(systemd.waitFor("RELOADING=1")) << systemd.seen().join('|').toStdString();
    EXPECT_TRUE(systemd.waitFor("READY=1")) << systemd.seen().join('|').toStdString();
    EXPECT_NE(sandbox.servicePid(), 0);
    EXPECT_TRUE(answers(sandbox));
    EXPECT_TRUE(
        sandbox.readFile(QStringLiteral("logs/orvd.log.1")).contains("Reloading on SIGHUP"));
    const QByteArray reopened = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    EXPECT_TRUE(reopened.contains("Configuration read again: edition managed"))
        << reopened.toStdString();

    EXPECT_EQ(sandbox.stopService(SIGTERM), 0);
    EXPECT_TRUE(systemd.waitFor("STOPPING=1")) << systemd.seen().join('|').toStdString();
    EXPECT_TRUE(sandbox.readFile(QStringLiteral("logs/orvd.log")).contains("Stopping on SIGTERM"));
}

TEST(ServiceOperations, StartupProblemsAreNamedWithTheirCause)
{
    struct Row
    {
        const char* blocked; // made a plain file where the service wants a folder
        const char* said;
    };
    for (const Row& row : {Row{"run", "cannot create the folder %1/run: it or a folder above it "
                                      "exists and is not a folder"},
                           Row{"data", "cannot create the folder %1/data"},
                           Row{"config", "cannot create the folder %1/config"}}) {
        SCOPED_TRACE(row.blocked);
        Sandbox sandbox;
        ASSERT_TRUE(QDir(sandbox.path(QLatin1String(row.blocked))).removeRecursively());
        sandbox.writeFile(QLatin1String(row.blocked), "a file");
        const OrvTest::RunResult run = sandbox.runBinary(QStringLiteral("orvd"), {}, {}, {}, 10000);
        EXPECT_EQ(run.exitCode, 1);
        EXPECT_TRUE(run.err.contains(
            QStringLiteral("orvd: ").append(QLatin1String(row.said)).arg(sandbox.root()).toUtf8()))
            << run.err.toStdString();
        EXPECT_FALSE(sandbox.exists(QStringLiteral("run/orvd.sock")));
    }
}

TEST(ServiceOperations, ALogFolderThatCannotBeWrittenIsReportedAndTheLogGoesToStandardError)
{
    Sandbox sandbox;
    ASSERT_TRUE(QDir(sandbox.path(QStringLiteral("logs"))).removeRecursively());
    sandbox.writeFile(QStringLiteral("logs"), "a file");
    QProcess service;
    service.setProcessEnvironment(sandbox.environment());
    service.start(Sandbox::binary(QStringLiteral("orvd")), QStringList());
    ASSERT_TRUE(OrvTest::waitForSocket(sandbox.socketPath(), 10000, &service));
    EXPECT_TRUE(answers(sandbox));
    ::kill(static_cast<pid_t>(service.processId()), SIGTERM);
    ASSERT_TRUE(service.waitForFinished(10000));
    EXPECT_EQ(service.exitCode(), 0);
    const QByteArray err = service.readAllStandardError();
    EXPECT_TRUE(err.contains(QStringLiteral("orvd: cannot write the log file %1/logs/orvd.log")
                                 .arg(sandbox.root())
                                 .toUtf8()))
        << err.toStdString();
    // What the file would have held is in the journal instead.
    EXPECT_TRUE(err.contains("Ready")) << err.toStdString();
    EXPECT_TRUE(err.contains("Stopping on SIGTERM")) << err.toStdString();
}
