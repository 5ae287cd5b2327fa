// The client side of the channel to the service, driven the way the command
// line drives it: against the real orvd, and against fake_orvd for the faults
// the real one cannot be made to show.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/ICommand.h"
#include "orvCommon/Communication/Manager.h"
#include "orvCommon/Communication/Notification.h"
#include "orvCommon/Communication/NotificationTypes.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "support/FakeOrvd.h"
#include "support/Sandbox.h"

#include <QEventLoop>
#include <QJsonArray>
#include <QJsonObject>
#include <QTimer>
#include <gtest/gtest.h>
#include <memory>
#include <signal.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

using Orv::Common::Communication::ICommand;
using Orv::Common::Communication::INotification;
using Orv::Common::Communication::Manager;
using OrvTest::FakeOrvd;
using OrvTest::Sandbox;
namespace V2 = Orv::Common::Communication::V2;
namespace Format = Orv::Common::Communication::Commands::Format;
namespace Header = Format::Header;
using GetPlanList = V2::Plan::GetPlanList;

namespace {

QString key(const char* text)
{
    return QLatin1String(text);
}

// Runs the event loop for a moment, so that anything already queued (a second
// ending signal, a late reply) is delivered.
void settle(int milliseconds = 50)
{
    QEventLoop loop;
    QTimer::singleShot(milliseconds, &loop, &QEventLoop::quit);
    loop.exec();
}

// Counts the ending signals of one command for as long as it lives.
class Endings : public QObject
{
public:
    template <typename Command> explicit Endings(Command* command)
    {
        connect(command, &Command::complite, this, [this] { ++complite; });
        connect(command, &Command::error, this, [this] { ++error; });
        connect(command, &Command::timeout, this, [this] { ++timeout; });
    }

    int total() const { return complite + error + timeout; }

    // Runs the event loop until the exchange has ended (or limitMs passed), then
    // a little longer so that a second ending would be seen too.
    void wait(int limitMs = 20000)
    {
        QEventLoop loop;
        QTimer poll;
        connect(&poll, &QTimer::timeout, &loop, [&] {
            if (total() > 0)
                loop.quit();
        });
        poll.start(5);
        QTimer::singleShot(limitMs, &loop, &QEventLoop::quit);
        if (total() == 0)
            loop.exec();
        settle();
    }

    enum class Ending
    {
        None,
        Complete,
        Error,
        Timeout,
        Several
    };
    Ending ending() const
    {
        if (total() != 1)
            return total() == 0 ? Ending::None : Ending::Several;
        return complite ? Ending::Complete : error ? Ending::Error : Ending::Timeout;
    }

    int complite = 0;
    int error = 0;
    int timeout = 0;
};
using Ending = Endings::Ending;

// Sends the command and waits for its end: exactly one of the three signals.
template <typename Command> Ending runToEnd(Command& command, int limitMs = 20000)
{
    command.exec();
    Endings endings(&command);
    endings.wait(limitMs);
    return endings.ending();
}

std::unique_ptr<ICommand> namedPlanList(const QString& profile, int timeoutMs = 20000)
{
    std::unique_ptr<ICommand> command(
        Manager::instance()->commandFactory(key(Format::Plan::GetList::Name)));
    if (!command)
        return command;
    command->setRequest(QJsonDocument(
        QJsonObject{{key(Header::Params),
                     QJsonObject{{key(Format::Plan::GetList::Request::Profile), profile}}}}));
    command->setTimeout(timeoutMs);
    return command;
}

std::unique_ptr<V2::Command> typedPlanList(const QString& profile, int timeoutMs = 20000)
{
    std::unique_ptr<V2::Command> command(
        Manager::instance()->commandFactoryV2(GetPlanList::CommandId));
    if (!command)
        return command;
    auto request = QSharedPointer<GetPlanList::Request>::create();
    request->setProfile(profile);
    command->setRequest(request);
    command->setTimeout(timeoutMs);
    return command;
}

QJsonArray namedPlanRows(const ICommand& command)
{
    return command.reply()
        .object()
        .value(key(Header::Data))
        .toObject()
        .value(key(Format::Plan::GetList::Reply::Key))
        .toArray();
}

QSharedPointer<GetPlanList::Response> typedResponse(const V2::Command& command)
{
    return command.response().dynamicCast<GetPlanList::Response>();
}

QString rowName(const QJsonArray& rows, int index)
{
    return rows.at(index).toObject().value(key(Format::Plan::DataType::Info::Name)).toString();
}

// Leaves a socket file that nobody listens on, as a killed service does.
void makeStaleSocket(const QString& path)
{
    const int fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
    ASSERT_GE(fd, 0);
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const QByteArray encoded = path.toLocal8Bit();
    ASSERT_LT(static_cast<size_t>(encoded.size()), sizeof(address.sun_path));
    std::copy(encoded.begin(), encoded.end(), address.sun_path);
    ASSERT_EQ(::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
    ::close(fd);
}

class ChannelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(Manager::instance());
        Manager::instance()->setServerName(sandbox.socketPath());
    }

    // Starts fake_orvd in the sandbox and points the client at it.
    std::unique_ptr<FakeOrvd> startFake(const QString& mode, const QStringList& args = {})
    {
        const QString socket = sandbox.path(QStringLiteral("run/fake-%1.sock").arg(mode));
        auto fake = std::make_unique<FakeOrvd>(socket, mode, args);
        EXPECT_TRUE(fake->isListening()) << mode.toStdString();
        Manager::instance()->setServerName(socket);
        return fake;
    }

    Sandbox sandbox;
};

} // namespace

TEST_F(ChannelTest, RealServiceAnswersThePlanListInBothKinds)
{
    sandbox.writeFile(QStringLiteral("config/plans/daily.xml"),
                      "<Plan ID=\"{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}\" Name=\"Daily\" "
                      "Type=\"Backup\"/>");
    ASSERT_TRUE(sandbox.startService());

    const auto named = namedPlanList(QStringLiteral("tester"));
    ASSERT_TRUE(named);
    EXPECT_EQ(runToEnd(*named), Ending::Complete);
    EXPECT_TRUE(named->isComplite());
    EXPECT_FALSE(named->isReplyError()) << named->replyErrorString().toStdString();
    const QJsonArray rows = namedPlanRows(*named);
    ASSERT_EQ(rows.size(), 1);
    EXPECT_EQ(rowName(rows, 0), QStringLiteral("Daily"));
    EXPECT_EQ(rows.at(0).toObject().value(key(Format::Plan::DataType::Info::ID)).toString(),
              QStringLiteral("{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}"));

    const auto typed = typedPlanList(QStringLiteral("tester"));
    ASSERT_TRUE(typed);
    EXPECT_EQ(runToEnd(*typed), Ending::Complete);
    EXPECT_EQ(typed->status(), V2::Command::Done) << typed->errorMessage().toStdString();
    const auto response = typedResponse(*typed);
    ASSERT_TRUE(response);
    // The same rows both ways, each with its plan document.
    EXPECT_EQ(response->planList(), rows);
    EXPECT_TRUE(rows.at(0).toObject().contains(key(Format::Plan::DataType::Info::PlanXml)));

    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST_F(ChannelTest, UnknownNamesAndIdentifiersGiveNoCommand)
{
    const QPointer<Manager> manager = Manager::instance();
    EXPECT_EQ(manager->commandFactory(QStringLiteral("NoSuchCommand")), nullptr);
    EXPECT_EQ(manager->commandFactory(QString()), nullptr);
    // Names are exact: the registry does not guess at case.
    EXPECT_EQ(manager->commandFactory(QStringLiteral("plangetlist")), nullptr);
    EXPECT_EQ(manager->commandFactoryV2(QUuid::createUuid()), nullptr);
    EXPECT_EQ(manager->commandFactoryV2(QUuid()), nullptr);
    EXPECT_EQ(manager->notificationFactory(QUuid::createUuid()), nullptr);

    std::unique_ptr<ICommand> named(manager->commandFactory(key(Format::Plan::GetList::Name)));
    std::unique_ptr<V2::Command> typed(manager->commandFactoryV2(GetPlanList::CommandId));
    ASSERT_TRUE(named);
    ASSERT_TRUE(typed);
    EXPECT_EQ(typed->commandId(), GetPlanList::CommandId);
}

// What the service relies on: every request carries the envelope members, one
// session for the whole client, and a distinct exchange id per request.
TEST_F(ChannelTest, RequestsCarryTheEnvelopeAndRepliesReachTheirOwnCommand)
{
    const auto fake = startFake(QStringLiteral("reply"));
    const auto named = namedPlanList(QStringLiteral("first"));
    const auto typed = typedPlanList(QStringLiteral("second"));
    named->exec();
    typed->exec();
    Endings namedEnd(named.get());
    Endings typedEnd(typed.get());
    namedEnd.wait();
    typedEnd.wait();
    ASSERT_EQ(namedEnd.complite, 1);
    ASSERT_EQ(typedEnd.complite, 1);
    EXPECT_EQ(rowName(namedPlanRows(*named), 0), QStringLiteral("first"));
    ASSERT_TRUE(typedResponse(*typed));
    EXPECT_EQ(rowName(typedResponse(*typed)->planList(), 0), QStringLiteral("second"));

    const QList<QJsonObject> received = fake->received();
    ASSERT_EQ(received.size(), 2);
    const QJsonObject& request = received.at(0);
    EXPECT_EQ(request.value(key(Header::Type::Key)).toString(), key(Header::Type::Request));
    EXPECT_EQ(request.value(key(Header::Command)).toString(), key(Format::Plan::GetList::Name));
    EXPECT_EQ(request.value(key(Header::SessionId)).toString(), Manager::instance()->sessionId());
    EXPECT_TRUE(request.contains(key(Header::ConnectionType::key)));
    EXPECT_EQ(request.value(key(Header::Params))
                  .toObject()
                  .value(key(Format::Plan::GetList::Request::Profile))
                  .toString(),
              QStringLiteral("first"));

    const QJsonObject& typedRequest = received.at(1);
    EXPECT_EQ(typedRequest.value(key(Header::Type::Key)).toString(), key(Header::Type::RequestV2));
    EXPECT_EQ(QUuid(typedRequest.value(key(Header::CommandId)).toString()), GetPlanList::CommandId);
    EXPECT_EQ(typedRequest.value(key(Header::SessionId)).toString(),
              Manager::instance()->sessionId());
    EXPECT_NE(request.value(key(Header::Id)).toString(), QString());
    EXPECT_NE(request.value(key(Header::Id)), typedRequest.value(key(Header::Id)));
}

// A reply the client cannot read ends the exchange with error(), and the next
// request opens a fresh connection instead of writing into the broken one.
TEST_F(ChannelTest, UnreadableRepliesEndWithAnErrorAndTheNextRequestReconnects)
{
    for (const char* mode : {"malformed", "array", "oversize", "close-mid-frame"}) {
        SCOPED_TRACE(mode);
        const auto fake = startFake(QLatin1String(mode));

        const auto named = namedPlanList(QStringLiteral("p"));
        EXPECT_EQ(runToEnd(*named), Ending::Error);
        EXPECT_TRUE(named->isError());
        EXPECT_FALSE(named->isComplite());
        EXPECT_TRUE(named->reply().isNull());
        EXPECT_FALSE(named->errorString().isEmpty());
        // The service read the request and may have acted on it.
        EXPECT_TRUE(named->isOutcomeUnknown());

        const auto typed = typedPlanList(QStringLiteral("p"));
        EXPECT_EQ(runToEnd(*typed), Ending::Error);
        EXPECT_TRUE(typed->isError());
        EXPECT_EQ(typed->status(), V2::Command::Failed);
        EXPECT_FALSE(typed->errorMessage().isEmpty());
        EXPECT_FALSE(typed->response());

        EXPECT_EQ(fake->received().size(), 2);
    }
}

TEST_F(ChannelTest, RefusalsCarryTheServiceMessage)
{
    const QString message = QStringLiteral("Plan storage is locked by another job");
    const auto fake = startFake(QStringLiteral("failed"), {QStringLiteral("--message"), message});

    const auto named = namedPlanList(QStringLiteral("p"));
    EXPECT_EQ(runToEnd(*named), Ending::Complete);
    EXPECT_TRUE(named->isReplyError());
    EXPECT_EQ(named->replyErrorString(), message);

    const auto typed = typedPlanList(QStringLiteral("p"));
    EXPECT_EQ(runToEnd(*typed), Ending::Complete);
    EXPECT_EQ(typed->status(), V2::Command::Failed);
    EXPECT_EQ(typed->errorMessage(), message);
    EXPECT_FALSE(typed->response());
}

TEST_F(ChannelTest, RepliesOfTheWrongShapeCompleteWithoutUsableData)
{
    const auto fake = startFake(QStringLiteral("non-object"));

    const auto named = namedPlanList(QStringLiteral("p"));
    EXPECT_EQ(runToEnd(*named), Ending::Complete);
    EXPECT_FALSE(named->isReplyError());
    EXPECT_TRUE(named->reply().isObject());
    EXPECT_FALSE(named->reply().object().value(key(Header::Data)).isObject());

    const auto typed = typedPlanList(QStringLiteral("p"));
    EXPECT_EQ(runToEnd(*typed), Ending::Complete);
    EXPECT_EQ(typed->status(), V2::Command::Done);
    EXPECT_FALSE(typed->response()) << "a response without its plan list must not be handed out";
}

TEST_F(ChannelTest, TryLaterCompletesEachTimeUntilTheServiceAnswers)
{
    const auto fake =
        startFake(QStringLiteral("retry"), {QStringLiteral("--retries"), QStringLiteral("2")});
    QList<int> statuses;
    for (int attempt = 0; attempt < 5; ++attempt) {
        const auto typed = typedPlanList(QStringLiteral("p"));
        ASSERT_EQ(runToEnd(*typed), Ending::Complete);
        statuses.append(typed->status());
        if (typed->status() != V2::Command::TryLater) {
            const auto response = typedResponse(*typed);
            ASSERT_TRUE(response);
            EXPECT_EQ(response->planList().size(), 1);
            break;
        }
        EXPECT_FALSE(typed->response());
    }
    EXPECT_EQ(statuses,
              (QList<int>{V2::Command::TryLater, V2::Command::TryLater, V2::Command::Done}));
    EXPECT_EQ(fake->received().size(), 3);
}

TEST_F(ChannelTest, SilenceEndsWithTimeoutAndALateReplyGoesNowhere)
{
    {
        const auto fake = startFake(QStringLiteral("silent"));
        const auto named = namedPlanList(QStringLiteral("p"), 100);
        const auto typed = typedPlanList(QStringLiteral("p"), 100);
        EXPECT_EQ(runToEnd(*named), Ending::Timeout);
        EXPECT_FALSE(named->errorString().isEmpty());
        EXPECT_EQ(runToEnd(*typed), Ending::Timeout);
        EXPECT_EQ(typed->status(), V2::Command::Failed);
        EXPECT_FALSE(typed->errorMessage().isEmpty());
    }

    // The service answers the first command only when the second request
    // arrives, long after the first gave up; both answers come together. The
    // late one must neither end the first exchange again nor be taken for the
    // second's.
    const auto fake = startFake(QStringLiteral("late"));
    const auto early = namedPlanList(QStringLiteral("early"), 50);
    early->exec();
    Endings earlyEnd(early.get());
    earlyEnd.wait();
    ASSERT_EQ(earlyEnd.timeout, 1);

    const auto later = namedPlanList(QStringLiteral("later"));
    EXPECT_EQ(runToEnd(*later), Ending::Complete);
    EXPECT_EQ(rowName(namedPlanRows(*later), 0), QStringLiteral("later"));
    EXPECT_EQ(earlyEnd.total(), 1);
    EXPECT_TRUE(early->isTimeout());
    EXPECT_TRUE(early->reply().isNull());
}

// A request too large for the channel is refused before it is sent; the other
// exchanges on the same connection must not pay for it.
TEST_F(ChannelTest, AnOversizedRequestFailsAloneAndTheOthersCarryOn)
{
    const auto fake = startFake(QStringLiteral("late"));
    const auto waiting = namedPlanList(QStringLiteral("waiting"));
    waiting->exec();
    Endings waitingEnd(waiting.get());
    settle();

    const auto oversized = namedPlanList(QString(17 * 1024 * 1024, QLatin1Char('x')));
    EXPECT_EQ(runToEnd(*oversized), Ending::Error);
    EXPECT_EQ(waitingEnd.total(), 0) << "an exchange in flight was ended by another's request";

    // The next request releases the held answer to the first.
    const auto next = namedPlanList(QStringLiteral("next"));
    EXPECT_EQ(runToEnd(*next), Ending::Complete);
    waitingEnd.wait();
    EXPECT_EQ(waitingEnd.ending(), Ending::Complete);
    EXPECT_EQ(rowName(namedPlanRows(*waiting), 0), QStringLiteral("waiting"));
    EXPECT_EQ(fake->received().size(), 2);
}

// Without a service the exchange fails at once with the reason, not after the
// time-out, and the signal still comes through the event loop: a caller that
// connects after exec() sees it.
TEST_F(ChannelTest, NoServiceEndsWithAnErrorThroughTheEventLoop)
{
    const QString missing = sandbox.path(QStringLiteral("run/nobody.sock"));
    const QString stale = sandbox.path(QStringLiteral("run/stale.sock"));
    makeStaleSocket(stale);
    for (const QString& socket : {missing, stale}) {
        SCOPED_TRACE(socket.toStdString());
        Manager::instance()->setServerName(socket);

        const auto named = namedPlanList(QStringLiteral("p"), 60000);
        bool endedInsideExec = false;
        QObject::connect(named.get(), &ICommand::error, [&] { endedInsideExec = true; });
        named->exec();
        EXPECT_FALSE(endedInsideExec);
        Endings namedEnd(named.get());
        namedEnd.wait(30000);
        EXPECT_EQ(namedEnd.ending(), Ending::Error);
        EXPECT_EQ(named->errorString(), QStringLiteral("The backup service is not running"));
        EXPECT_FALSE(named->isOutcomeUnknown()) << "nothing was sent";

        const auto typed = typedPlanList(QStringLiteral("p"), 60000);
        EXPECT_EQ(runToEnd(*typed, 30000), Ending::Error);
        EXPECT_EQ(typed->status(), V2::Command::Failed);
        EXPECT_EQ(typed->errorMessage(), QStringLiteral("The backup service is not running"));
    }
}

// A service that dies while a command waits ends that command with error();
// the next one fails at once on the dead socket, and once the service is
// back the same client reaches it again.
TEST_F(ChannelTest, ServiceDeathEndsTheWaitingExchangeAndARestartIsReachedAgain)
{
    ASSERT_TRUE(sandbox.startService());
    // Held stopped, the service accepts the connection but cannot answer.
    ASSERT_EQ(::kill(static_cast<pid_t>(sandbox.servicePid()), SIGSTOP), 0);
    const auto waiting = namedPlanList(QStringLiteral("p"), 60000);
    waiting->exec();
    Endings waitingEnd(waiting.get());
    settle(100);
    EXPECT_EQ(waitingEnd.total(), 0);
    EXPECT_EQ(sandbox.stopService(SIGKILL), -1);
    waitingEnd.wait(30000);
    EXPECT_EQ(waitingEnd.ending(), Ending::Error);

    const auto next = typedPlanList(QStringLiteral("p"), 60000);
    EXPECT_EQ(runToEnd(*next, 30000), Ending::Error);

    ASSERT_TRUE(sandbox.startService());
    const auto again = typedPlanList(QStringLiteral("p"));
    EXPECT_EQ(runToEnd(*again), Ending::Complete);
    EXPECT_EQ(again->status(), V2::Command::Done);
    EXPECT_EQ(sandbox.stopService(), 0);

    // The same for the fake, killed while it ignores a typed request.
    const auto fake = startFake(QStringLiteral("silent"));
    const auto typed = typedPlanList(QStringLiteral("p"), 60000);
    typed->exec();
    Endings typedEnd(typed.get());
    settle(100);
    fake->kill();
    typedEnd.wait(30000);
    EXPECT_EQ(typedEnd.ending(), Ending::Error);
    EXPECT_EQ(typed->status(), V2::Command::Failed);
}

TEST_F(ChannelTest, NotificationsFlowBothWays)
{
    namespace Progress = Orv::Common::Communication::Notification::Format::System::UpdateProgress;
    namespace Update = Orv::Common::Communication::Notification::Format::System::Update;
    const auto fake = startFake(QStringLiteral("reply"));

    QList<QJsonDocument> pushed;
    const auto center = Manager::instance()->notificationCenter();
    ASSERT_TRUE(center);
    QEventLoop loop;
    const auto connection =
        QObject::connect(center, &Orv::Common::Notification::Center::notification,
                         [&](const QJsonDocument& document) {
                             pushed.append(document);
                             loop.quit();
                         });
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    loop.exec();
    QObject::disconnect(connection);
    ASSERT_EQ(pushed.size(), 1);
    const QJsonObject notification = pushed.at(0).object();
    EXPECT_EQ(QUuid(notification.value(key(Header::NotificationType)).toString()), Progress::Type);
    EXPECT_EQ(notification.value(key(Header::NotificationMessage))
                  .toObject()
                  .value(key(Progress::Count))
                  .toInt(),
              1);

    std::unique_ptr<INotification> update(Manager::instance()->notificationFactory(Update::Type));
    ASSERT_TRUE(update);
    update->setMessage({{key(Update::BuildUrl), QStringLiteral("file:///tmp/build.deb")}});
    ASSERT_TRUE(update->send());
    // A request after it on the same connection proves it was written.
    const auto named = namedPlanList(QStringLiteral("p"));
    named->exec();
    Endings(named.get()).wait();

    const QList<QJsonObject> received = fake->received();
    ASSERT_EQ(received.size(), 3);
    EXPECT_EQ(received.at(0).value(key(Header::Type::Key)).toString(),
              key(Header::Type::Subscribe));
    const QJsonObject sent = received.at(1);
    EXPECT_EQ(sent.value(key(Header::Type::Key)).toString(), key(Header::Type::Notification));
    EXPECT_EQ(sent.value(key(Header::Data)).toObject(),
              INotification::document(Update::Type, update->message()));
}
