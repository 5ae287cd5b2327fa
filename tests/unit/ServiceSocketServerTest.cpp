// The socket server run inside the test process, for what needs a hand on it:
// pushing notifications, and a small output limit for a client that does not
// read.

#include "integration/ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "service/channel/Dispatcher.h"
#include "service/channel/HandlerRegistry.h"
#include "service/channel/SocketServer.h"

#include <QDeadlineTimer>
#include <QLoggingCategory>
#include <QTemporaryDir>
#include <gtest/gtest.h>
#include <optional>

using Orv::Service::Dispatcher;
using Orv::Service::HandlerRegistry;
using Orv::Service::NamedOutcome;
using Orv::Service::RequestContext;
using Orv::Service::SocketServer;
using OrvTest::ServiceRawClient;
namespace Header = Orv::Common::Communication::Commands::Format::Header;

namespace {

QString key(const char* text)
{
    return QLatin1String(text);
}

class ServiceSocketServer : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(folder.isValid());
        // The request log would drown the test output.
        QLoggingCategory::setFilterRules(QStringLiteral("orvd.*.debug=false"));
        registry.addNamed("Ping", [](const QJsonObject&, const RequestContext&) {
            return NamedOutcome::success({{"pong", true}});
        });
        registry.addNamed("Bulk", [](const QJsonObject&, const RequestContext&) {
            return NamedOutcome::success({{"bulk", QString(64 * 1024, QLatin1Char('b'))}});
        });
        dispatcher.setReady(true);
        QString error;
        ASSERT_TRUE(server.listen(socketPath(), &error)) << error.toStdString();
    }

    QString socketPath() const { return folder.filePath(QStringLiteral("orvd.sock")); }

    static bool waitUntil(const std::function<bool()>& condition)
    {
        const QDeadlineTimer deadline(10000);
        while (!condition() && !deadline.hasExpired())
            QCoreApplication::processEvents(QEventLoop::AllEvents, 10);
        return condition();
    }

    QTemporaryDir folder;
    HandlerRegistry registry;
    Dispatcher dispatcher{registry};
    SocketServer server{dispatcher};
};

} // namespace

TEST_F(ServiceSocketServer, NotificationsGoToSubscribersOnly)
{
    ServiceRawClient listener(socketPath());
    ServiceRawClient bystander(socketPath());
    ASSERT_TRUE(listener.send({{key(Header::Type::Key), key(Header::Type::Subscribe)}}));
    // Answers come in order, so once this one is back the subscription is known.
    ASSERT_TRUE(listener.call("Ping"));
    ASSERT_TRUE(bystander.call("Ping"));

    const QUuid type = QUuid::createUuid();
    server.broadcast(type, {{"Count", 2}});

    const auto pushed = listener.receive();
    ASSERT_TRUE(pushed);
    EXPECT_EQ(*pushed,
              QJsonObject(
                  {{key(Header::Type::Key), key(Header::Type::Notification)},
                   {key(Header::Data),
                    QJsonObject{{key(Header::NotificationType), type.toString()},
                                {key(Header::NotificationMessage), QJsonObject{{"Count", 2}}}}}}));
    const auto next = bystander.call("Ping");
    ASSERT_TRUE(next);
    EXPECT_EQ(next->value(key(Header::Type::Key)).toString(), key(Header::Type::Reply));
}

TEST_F(ServiceSocketServer, ClientThatDoesNotReadIsDroppedWhileOthersAreServed)
{
    server.setMaxPendingOutput(1024 * 1024);
    ServiceRawClient steady(socketPath());
    ServiceRawClient deaf(socketPath());
    ASSERT_TRUE(steady.call("Ping"));
    ASSERT_TRUE(waitUntil([this] { return server.connectionCount() == 2; }));

    // About 6 MiB of answers against 1 MiB allowed plus what the kernel buffers.
    QByteArray requests;
    for (int i = 0; i < 100; ++i)
        requests += Orv::Common::Communication::encodeFrame(
            {{key(Header::Type::Key), key(Header::Type::Request)},
             {key(Header::Command), "Bulk"},
             {key(Header::Id), QString::number(i)}});
    ASSERT_TRUE(deaf.sendBytes(requests));
    EXPECT_TRUE(waitUntil([this] { return server.connectionCount() == 1; }));

    EXPECT_TRUE(steady.call("Ping"));
    EXPECT_TRUE(deaf.waitUntilClosed());
}

TEST_F(ServiceSocketServer, StoppingRemovesOnlyItsOwnSocket)
{
    ServiceRawClient client(socketPath());
    ASSERT_TRUE(client.call("Ping"));
    server.close();
    EXPECT_FALSE(QFile::exists(socketPath()));
    EXPECT_TRUE(client.waitUntilClosed());

    // A listener that was replaced under it leaves the newcomer's socket alone.
    QString error;
    ASSERT_TRUE(server.listen(socketPath(), &error)) << error.toStdString();
    ASSERT_TRUE(QFile::remove(socketPath()));
    SocketServer successor(dispatcher);
    ASSERT_TRUE(successor.listen(socketPath(), &error)) << error.toStdString();
    server.close();
    EXPECT_TRUE(QFile::exists(socketPath()));
    ServiceRawClient late(socketPath());
    EXPECT_TRUE(late.call("Ping"));
}

// A client waiting for a slow answer has sent nothing for longer than the
// idle time-out, like one that is merely idle; only the idle one is dropped.
TEST_F(ServiceSocketServer, AClientWaitingForAnAnswerIsNotIdle)
{
    std::optional<Orv::Service::NamedResponder> pending;
    registry.addNamedAsync(
        "Slow", [&](const QJsonObject&, const RequestContext&,
                    const Orv::Service::NamedResponder& responder) { pending = responder; });
    server.setTimeouts({200, 200});
    ServiceRawClient waiting(socketPath());
    ServiceRawClient idle(socketPath());
    ASSERT_TRUE(waiting.send({{key(Header::Type::Key), key(Header::Type::Request)},
                              {key(Header::Command), "Slow"},
                              {key(Header::Id), "slow"}}));
    ASSERT_TRUE(waitUntil([&] { return pending.has_value(); }));
    EXPECT_TRUE(idle.waitUntilClosed());
    pending->success({{"done", true}});
    const auto reply = waiting.receive();
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->value(key(Header::Id)).toString(), QStringLiteral("slow"));
}
