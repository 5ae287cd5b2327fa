#include "CommandChannel.h"

#include "Application.h"
#include "CommandGroupBase.h"
#include "CommonHelpers.h"
#include "Console.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "support/FakeOrvd.h"
#include "support/Sandbox.h"
#include "unit/StdoutCapture.h"

#include <QEventLoop>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Orv::CLI;
using Orv::Common::Communication::Manager;
namespace Plan = Orv::Common::Communication::V2::Plan;
namespace Format = Orv::Common::Communication::Commands::Format;

namespace {

// A command that lists plans through the typed channel, the way every typed
// command of the command line does.
class TypedProbe : public CommandBase
{
public:
    TypedProbe() : CommandBase(QStringLiteral("typed"), QStringLiteral("typed probe")) {}

    int process(const QStringList&) override
    {
        send();
        return Started;
    }

private:
    void send()
    {
        try {
            auto request = QSharedPointer<Plan::GetPlanList::Request>::create();
            request->setProfile(QStringLiteral("tester"));
            CommandChannel::sendTyped(Plan::GetPlanList::CommandId, request, this,
                                      &TypedProbe::onGetPlanListResult);
        } catch (const QString& message) {
            emit error(message);
        }
    }

    void onGetPlanListResult()
    {
        QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
            qobject_cast<CommandChannel::TypedCommand*>(sender()));
        try {
            const auto response = CommandChannel::typedResponse<Plan::GetPlanList::Response>(
                command.data(), this, [this] { send(); });
            if (!response)
                return;
            print(QStringLiteral("plans: %1\n").arg(response->planList().size()));
            emit finished(DontShow);
        } catch (const QString& message) {
            emit error(message);
        }
    }
};

// A command that lists plans through the named channel.
class NamedProbe : public CommandBase
{
public:
    NamedProbe() : CommandBase(QStringLiteral("named"), QStringLiteral("named probe")) {}

    int process(const QStringList&) override
    {
        try {
            CommandChannel::sendNamed(QLatin1String(Format::Plan::GetList::Name), {}, this,
                                      &NamedProbe::onGetPlanListResult);
        } catch (const QString& message) {
            emit error(message);
        }
        return Started;
    }

private:
    void onGetPlanListResult()
    {
        QScopedPointer<CommandChannel::ICommand, QScopedPointerDeleteLater> command(
            qobject_cast<CommandChannel::ICommand*>(sender()));
        try {
            const QJsonObject data = CommandChannel::namedReplyData(command.data());
            print(QStringLiteral("plans: %1\n")
                      .arg(data.value(QLatin1String(Format::Plan::GetList::Reply::Key))
                               .toArray()
                               .size()));
            emit finished(Show);
        } catch (const QString& message) {
            emit error(message);
        }
    }
};

class ProbeApplication : public Application
{
public:
    explicit ProbeApplication(const QStringList& words)
        : Application(QStringList{QStringLiteral("orvV2")} + words)
    {
        auto root = QSharedPointer<CommandGroupBase>::create(QString(), QString());
        root->addSubItem(QSharedPointer<TypedProbe>::create());
        root->addSubItem(QSharedPointer<NamedProbe>::create());
        setRootGroup(root);
    }

    void onStarted() override { checkAndProcess(); }
};

struct Outcome
{
    int result;
    QByteArray printed;
};

// Runs one command line through the application as main() does, with the
// channel pointed at the given socket.
Outcome runProbe(const QString& socket, const QString& word)
{
    Manager::instance()->setServerName(socket);
    StdoutCapture capture;
    ProbeApplication application({word});
    application.init();
    QEventLoop loop;
    QObject::connect(&application, &Application::finished, &loop, &QEventLoop::quit,
                     Qt::QueuedConnection);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    application.start();
    loop.exec();
    return {application.result(), capture.take()};
}

class CommandChannelTest : public ::testing::Test
{
protected:
    void SetUp() override
    {
        qputenv("ORV_ROOT", sandbox.root().toLocal8Bit());
        qputenv("ORV_RETRY_DELAY_MS", "50");
        Orv::Defines::AppPath::reload();
    }
    void TearDown() override
    {
        qunsetenv("ORV_RETRY_DELAY_MS");
        fake.reset();
    }

    // Starts the fault-injecting service in the given mode.
    QString startFake(const QString& mode, const QStringList& arguments = {})
    {
        const QString socket = sandbox.path(QStringLiteral("run/fake.sock"));
        fake = std::make_unique<OrvTest::FakeOrvd>(socket, mode, arguments);
        EXPECT_TRUE(fake->isListening());
        return socket;
    }

    OrvTest::Sandbox sandbox;
    std::unique_ptr<OrvTest::FakeOrvd> fake;
};

} // namespace

TEST_F(CommandChannelTest, RealServiceAnswersBothKindsAndTheRunSucceeds)
{
    sandbox.writeFile(QStringLiteral("config/plans/a.xml"),
                      "<Plan ID=\"{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}\" Name=\"Daily\" "
                      "Type=\"Backup\"/>");
    ASSERT_TRUE(sandbox.startService());

    const Outcome typed = runProbe(sandbox.socketPath(), QStringLiteral("typed"));
    EXPECT_EQ(typed.result, 0);
    EXPECT_EQ(typed.printed, QByteArray("plans: 1\n"));

    const Outcome named = runProbe(sandbox.socketPath(), QStringLiteral("named"));
    EXPECT_EQ(named.result, 0);
    EXPECT_EQ(named.printed, QByteArray("plans: 1\n\nSuccess.\n"));

    Manager::instance()->setServerName(sandbox.socketPath());
    EXPECT_EQ(CommonHelpers::searchPlan(QStringLiteral("Daily")).displayName(),
              QStringLiteral("Daily"));
    EXPECT_EQ(CommonHelpers::searchPlan(QStringLiteral("{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}"))
                  .displayName(),
              QStringLiteral("Daily"));
    EXPECT_FALSE(CommonHelpers::searchPlan(QStringLiteral("daily")).isValid());
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST_F(CommandChannelTest, NoServiceEndsTheRunWithAnErrorAtOnce)
{
    const QString missing = sandbox.path(QStringLiteral("run/nobody.sock"));
    for (const char* word : {"typed", "named"}) {
        const Outcome outcome = runProbe(missing, QLatin1String(word));
        EXPECT_EQ(outcome.result, -1) << word;
        EXPECT_EQ(outcome.printed, QByteArray("The backup service is not running\n")) << word;
    }
    Manager::instance()->setServerName(missing);
    try {
        CommonHelpers::searchPlan(QStringLiteral("x"));
        ADD_FAILURE() << "searchPlan must throw without a service";
    } catch (const QString& message) {
        EXPECT_EQ(message, QStringLiteral("The backup service is not running"));
    }
}

TEST_F(CommandChannelTest, MalformedNamedReplyIsAFormatError)
{
    const QString socket = startFake(QStringLiteral("non-object"));
    const Outcome outcome = runProbe(socket, QStringLiteral("named"));
    EXPECT_EQ(outcome.result, -1);
    EXPECT_EQ(outcome.printed, QByteArray("Local command reply format error\n"));
}
