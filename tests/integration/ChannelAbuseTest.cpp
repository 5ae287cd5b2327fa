// The service against hostile and broken clients: broken, oversized, half-sent
// and never-read frames, floods of connections and of log lines, and a
// process out of descriptors. Each costs only the offending connection, in
// bounded memory, while other clients are served.

#include "integration/ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonArray>
#include <QThread>
#include <QtEndian>
#include <gtest/gtest.h>
#include <memory>
#include <sys/resource.h>
#include <vector>

using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
namespace Communication = Orv::Common::Communication;
namespace Format = Communication::Commands::Format;
namespace Header = Format::Header;

namespace {

constexpr qint64 kMiB = 1024 * 1024;

QByteArray lengthPrefix(quint32 length)
{
    QByteArray header(4, Qt::Uninitialized);
    qToBigEndian<quint32>(length, header.data());
    return header;
}

QJsonObject request(const QString& command, const QString& id)
{
    return {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Request)},
            {QLatin1String(Header::Command), command},
            {QLatin1String(Header::Id), id},
            {QLatin1String(Header::Params), QJsonObject()}};
}

QJsonObject planListRequest(const QString& id)
{
    return request(QLatin1String(Format::Plan::GetList::Name), id);
}

bool servesPlanList(ServiceRawClient& client)
{
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    return reply && reply->value(QLatin1String(Header::Status::Key)).toString() ==
                        QLatin1String(Header::Status::Value::Success);
}

bool servesPlanList(const Sandbox& sandbox)
{
    ServiceRawClient client(sandbox.socketPath());
    return servesPlanList(client);
}

// A figure of /proc/<pid>/status, in bytes.
qint64 memoryOf(qint64 pid, const char* field)
{
    QFile status(QStringLiteral("/proc/%1/status").arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray& line : status.readAll().split('\n'))
        if (line.startsWith(field))
            return line.mid(static_cast<int>(qstrlen(field)) + 1)
                       .trimmed()
                       .split(' ')[0]
                       .toLongLong() *
                   1024;
    return -1;
}

int linesContaining(const QByteArray& log, const QByteArray& text)
{
    int count = 0;
    for (const QByteArray& line : log.split('\n'))
        count += line.contains(text) ? 1 : 0;
    return count;
}

} // namespace

TEST(ChannelAbuse, BrokenClientsCostOnlyTheirOwnConnection)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("config/plans/p.xml"),
                      "<Plan ID=\"{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}\" Name=\"P\"/>");
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient steady(sandbox.socketPath());
    ASSERT_TRUE(servesPlanList(steady));

    // The steady client is half-way through a frame while the others misbehave.
    const QByteArray pending = Communication::encodeFrame(planListRequest(QStringLiteral("late")));
    ASSERT_TRUE(steady.sendBytes(pending.left(7)));

    // Each broken frame comes in one write after a valid request, which is
    // still answered before the connection closes.
    const QByteArray notJson = "not json at all";
    const QList<QByteArray> fatal = {
        lengthPrefix(static_cast<quint32>(notJson.size())) + notJson,
        lengthPrefix(5) + "[1,2]",
        lengthPrefix(Communication::kMaxFrameSize + 1),
        lengthPrefix(0xffffffffu) + "{}",
    };
    for (const QByteArray& bytes : fatal) {
        SCOPED_TRACE(bytes.toHex().left(40).toStdString());
        ServiceRawClient broken(sandbox.socketPath());
        ASSERT_TRUE(broken.sendBytes(
            Communication::encodeFrame(planListRequest(QStringLiteral("before"))) + bytes));
        const auto answer = broken.receive();
        ASSERT_TRUE(answer);
        EXPECT_EQ(answer->value(QLatin1String(Header::Id)).toString(), QStringLiteral("before"));
        EXPECT_TRUE(broken.waitUntilClosed());
    }

    // Dies in the middle of a frame.
    {
        ServiceRawClient dying(sandbox.socketPath());
        ASSERT_TRUE(dying.sendBytes(lengthPrefix(1000) + "{\"type\":"));
    }
    // Stops in the middle of a frame and stays connected.
    ServiceRawClient stalled(sandbox.socketPath());
    ASSERT_TRUE(stalled.sendBytes(lengthPrefix(1000) + "{\"type\":"));
    // Asks a lot and leaves without reading a single answer.
    {
        ServiceRawClient leaving(sandbox.socketPath());
        QByteArray burst;
        for (int i = 0; i < 200; ++i)
            burst += Communication::encodeFrame(planListRequest(QString::number(i)));
        ASSERT_TRUE(leaving.sendBytes(burst));
    }

    ASSERT_TRUE(steady.sendBytes(pending.mid(7)));
    const auto late = steady.receive();
    ASSERT_TRUE(late);
    EXPECT_EQ(late->value(QLatin1String(Header::Id)).toString(), QStringLiteral("late"));
    EXPECT_EQ(late->value(QLatin1String(Header::Data))
                  .toObject()
                  .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                  .toArray()
                  .size(),
              1);

    EXPECT_TRUE(servesPlanList(steady));
    EXPECT_TRUE(servesPlanList(sandbox));
    EXPECT_EQ(sandbox.stopService(), 0);
    EXPECT_TRUE(sandbox.readFile(QStringLiteral("logs/orvd.log")).contains("not a JSON object"));
}

TEST(ChannelAbuse, ManyConnectionsAtOnceAreAllServed)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    std::vector<std::unique_ptr<ServiceRawClient>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<ServiceRawClient>(sandbox.socketPath()));
        ASSERT_TRUE(clients.back()->isConnected()) << i;
        ASSERT_TRUE(clients.back()->send(planListRequest(QString::number(i))));
    }
    for (int i = 0; i < 200; ++i) {
        const auto reply = clients[static_cast<size_t>(i)]->receive();
        ASSERT_TRUE(reply) << i;
        EXPECT_EQ(reply->value(QLatin1String(Header::Id)).toString(), QString::number(i));
    }
    clients.clear();
    EXPECT_TRUE(servesPlanList(sandbox));
    EXPECT_EQ(sandbox.stopService(), 0);
}

// Forty clients announce a 15 MiB frame each, send half of it and stall: the
// service holds a bounded share of that, goes on serving others, and drops
// them after the frame time-out; an idle client goes after the idle time-out,
// one waiting for notifications stays.
TEST(ChannelAbuse, HalfSentFramesTakeBoundedMemoryAndAreDropped)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("config/defaultSettings.conf"),
                      R"({"ClientFrameTimeout": "2", "ClientIdleTimeout": "3"})");
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient idle(sandbox.socketPath());
    ServiceRawClient subscribed(sandbox.socketPath());
    ASSERT_TRUE(subscribed.send(
        {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Subscribe)}}));
    ASSERT_TRUE(servesPlanList(subscribed));
    const qint64 before = memoryOf(sandbox.servicePid(), "VmRSS:");
    ASSERT_GT(before, 0);

    const QByteArray half = lengthPrefix(15 * kMiB) + QByteArray(15 * kMiB / 2, ' ');
    std::vector<std::unique_ptr<ServiceRawClient>> stalled;
    std::vector<qsizetype> sent(40, 0);
    for (int i = 0; i < 40; ++i)
        stalled.push_back(std::make_unique<ServiceRawClient>(sandbox.socketPath()));
    // Push until the service takes no more for a while.
    for (int quiet = 0; quiet < 10;) {
        qsizetype progress = 0;
        for (size_t i = 0; i < stalled.size(); ++i) {
            const qsizetype count = stalled[i]->sendSome(half.mid(sent[i], 1024 * 1024));
            sent[i] += count;
            progress += count;
        }
        quiet = progress > 0 ? 0 : quiet + 1;
        QThread::msleep(30);
    }
    EXPECT_TRUE(servesPlanList(sandbox));
    const qint64 peak = memoryOf(sandbox.servicePid(), "VmHWM:");
    EXPECT_LT(peak - before, 150 * kMiB) << "forty half-sent frames are 300 MiB";

    const QDeadlineTimer deadline(20000);
    int open = 0;
    for (const auto& client : stalled)
        open += client->waitUntilClosed(static_cast<int>(deadline.remainingTime())) ? 0 : 1;
    EXPECT_EQ(open, 0);
    EXPECT_TRUE(idle.waitUntilClosed(static_cast<int>(deadline.remainingTime())));
    EXPECT_TRUE(servesPlanList(subscribed)) << "a subscriber is never idle";
    EXPECT_EQ(sandbox.stopService(), 0);
    const QByteArray log = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    EXPECT_TRUE(log.contains("left a request unfinished for more than 2 s"));
    EXPECT_TRUE(log.contains("stayed idle for more than 3 s"));
}

// Fields a client makes as large as a frame allows come back cut, so the
// answer fits a frame, and reach the log cut too; a line repeated many times
// is written once with a count.
TEST(ChannelAbuse, OversizedFieldsAreNeitherEchoedNorLoggedWhole)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    const QString huge(static_cast<int>(Communication::kMaxFrameSize) - 200, QLatin1Char('n'));
    const QList<QPair<const char*, QJsonObject>> rows = {
        {"command", request(huge, QStringLiteral("1"))},
        {"id", planListRequest(huge)},
        {"session",
         [&] {
             QJsonObject message = planListRequest(QStringLiteral("3"));
             message.insert(QLatin1String(Header::SessionId), huge);
             return message;
         }()},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.first);
        ServiceRawClient client(sandbox.socketPath());
        ASSERT_TRUE(client.send(row.second));
        const auto reply = client.receive();
        ASSERT_TRUE(reply) << "the answer did not fit a frame";
        EXPECT_LT(Communication::encodeFrame(*reply).size(), 64 * 1024);
    }
    ServiceRawClient repeater(sandbox.socketPath());
    for (int i = 0; i < 50; ++i)
        ASSERT_TRUE(repeater.call(QStringLiteral("NoSuchCommand")));
    EXPECT_EQ(sandbox.stopService(), 0);

    const QByteArray log = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    EXPECT_LT(log.size(), 256 * 1024);
    EXPECT_TRUE(log.contains("characters in all]"));
    EXPECT_EQ(linesContaining(log, "Unknown command 'NoSuchCommand'"), 1);
    EXPECT_TRUE(log.contains("came 49 more time(s)"));
}

// Out of descriptors, the service tells each client it cannot serve so and
// closes at once, logs that once, and serves again when descriptors free up.
TEST(ChannelAbuse, OutOfDescriptorsClientsAreTurnedAwayAtOnce)
{
    Sandbox sandbox;
    rlimit own{};
    ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &own), 0);
    ASSERT_GT(own.rlim_max, 256u);
    rlimit lowered = own;
    lowered.rlim_cur = 256;
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
    const bool started = sandbox.startService();
    ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &own), 0);
    ASSERT_TRUE(started);
    const pid_t pid = static_cast<pid_t>(sandbox.servicePid());
    rlimit inService{};
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, nullptr, &inService), 0);
    EXPECT_EQ(inService.rlim_cur, own.rlim_max) << "the soft limit was not raised";

    const rlimit tight{64, 64};
    ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &tight, nullptr), 0);
    // Clients connect and stay until the next one is turned away.
    std::vector<std::unique_ptr<ServiceRawClient>> held;
    for (;;) {
        ASSERT_LT(held.size(), 200u);
        held.push_back(std::make_unique<ServiceRawClient>(sandbox.socketPath()));
        const auto reply = held.back()->call(QLatin1String(Format::Plan::GetList::Name));
        ASSERT_TRUE(reply);
        if (!reply->contains(QLatin1String(Header::Id)))
            break;
    }

    // First a share of the descriptors is kept back for those served; then
    // none is left at all.
    for (const rlim_t limit : {64, 40}) {
        SCOPED_TRACE(limit);
        const rlimit lower{limit, limit};
        ASSERT_EQ(::prlimit(pid, RLIMIT_NOFILE, &lower, nullptr), 0);
        const OrvTest::RunResult refused =
            sandbox.run({QStringLiteral("account"), QStringLiteral("list")}, {}, {}, 20000);
        EXPECT_EQ(refused.exitCode, 255);
        EXPECT_TRUE((refused.out + refused.err).contains("cannot take more connections now"))
            << refused.out.toStdString() << refused.err.toStdString();
    }

    held.clear();
    EXPECT_TRUE(servesPlanList(sandbox));
    EXPECT_EQ(sandbox.stopService(), 0);
    const QByteArray log = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    EXPECT_EQ(linesContaining(log, "Turning clients away"), 1);
    EXPECT_EQ(linesContaining(log, "Cannot accept"), 0);
}
