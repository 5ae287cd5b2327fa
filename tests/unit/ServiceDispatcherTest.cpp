// Routing of requests to handlers and the one-answer-per-request rule, with
// the answers captured instead of sent.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "service/channel/Dispatcher.h"
#include "service/channel/HandlerRegistry.h"

#include <QJsonArray>
#include <QLoggingCategory>
#include <gtest/gtest.h>
#include <optional>

using Orv::Service::Dispatcher;
using Orv::Service::HandlerRegistry;
using Orv::Service::NamedOutcome;
using Orv::Service::NamedResponder;
using Orv::Service::RequestContext;
using Orv::Service::TypedOutcome;
using Orv::Service::TypedResponder;
namespace Communication = Orv::Common::Communication;
namespace Header = Communication::Commands::Format::Header;
using GetPlanList = Communication::V2::Plan::GetPlanList;

namespace {

QString key(const char* text)
{
    return QLatin1String(text);
}

class ServiceDispatcher : public ::testing::Test
{
protected:
    ServiceDispatcher()
    {
        // The request log would drown the test output.
        QLoggingCategory::setFilterRules(QStringLiteral("orvd.*.debug=false"));
        dispatcher.setReady(true);
    }

    // Dispatches one message and returns the answers it produced (so far).
    QList<QJsonObject> dispatch(const QJsonObject& message)
    {
        const int before = answers.size();
        RequestContext context;
        context.connectionId = 7;
        dispatcher.dispatch(message, context, [this](const QByteArray& frame) {
            Communication::FrameReader reader;
            reader.append(frame);
            QJsonObject decoded;
            EXPECT_EQ(reader.next(&decoded), Communication::FrameReader::Result::Frame);
            answers.append(decoded);
        });
        return answers.mid(before);
    }

    QJsonObject named(const QString& command, const QJsonValue& params = QJsonObject())
    {
        QJsonObject message{{key(Header::Type::Key), key(Header::Type::Request)},
                            {key(Header::Command), command},
                            {key(Header::Id), "n1"},
                            {key(Header::SessionId), "session"}};
        if (!params.isUndefined())
            message.insert(key(Header::Params), params);
        return message;
    }

    QJsonObject typed(const QJsonValue& commandId, const QJsonValue& request = QJsonObject())
    {
        return {{key(Header::Type::Key), key(Header::Type::RequestV2)},
                {key(Header::CommandId), commandId},
                {key(Header::Id), "t1"},
                {key(Header::TypedRequest), request}};
    }

    // The single answer of one message.
    QJsonObject answerTo(const QJsonObject& message)
    {
        const QList<QJsonObject> produced = dispatch(message);
        EXPECT_EQ(produced.size(), 1);
        return produced.value(0);
    }

    HandlerRegistry registry;
    Dispatcher dispatcher{registry};
    QList<QJsonObject> answers;
};

} // namespace

TEST_F(ServiceDispatcher, NamedRepliesCarryTheEnvelopeAndTheHandlersResult)
{
    QJsonObject seenParams;
    RequestContext seenContext;
    registry.addNamed("Echo", [&](const QJsonObject& params, const RequestContext& context) {
        seenParams = params;
        seenContext = context;
        return NamedOutcome::success({{"echo", params.value("text")}});
    });
    registry.addNamed("Refuse", [](const QJsonObject&, const RequestContext&) {
        return NamedOutcome::failure("not today");
    });

    const QJsonObject reply = answerTo(named("Echo", QJsonObject{{"text", "hi"}}));
    EXPECT_EQ(reply, QJsonObject({{key(Header::Type::Key), key(Header::Type::Reply)},
                                  {key(Header::Command), "Echo"},
                                  {key(Header::Id), "n1"},
                                  {key(Header::SessionId), "session"},
                                  {key(Header::Status::Key), key(Header::Status::Value::Success)},
                                  {key(Header::Status::ErrorString), ""},
                                  {key(Header::Data), QJsonObject{{"echo", "hi"}}}}));
    EXPECT_EQ(seenParams, QJsonObject({{"text", "hi"}}));
    EXPECT_EQ(seenContext.sessionId, QStringLiteral("session"));
    EXPECT_EQ(seenContext.connectionId, 7u);
    EXPECT_TRUE(seenContext.serviceReady);

    const QJsonObject refused = answerTo(named("Refuse"));
    EXPECT_EQ(refused.value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Error));
    EXPECT_EQ(refused.value(key(Header::Status::ErrorString)).toString(),
              QStringLiteral("not today"));
    EXPECT_EQ(refused.value(key(Header::Data)).toObject(), QJsonObject());

    // Missing parameters are an empty object; parameters of another kind are refused.
    EXPECT_EQ(answerTo(named("Echo", QJsonValue::Undefined)).value(key(Header::Status::Key)),
              key(Header::Status::Value::Success));
    EXPECT_EQ(answerTo(named("Echo", "text")).value(key(Header::Status::Key)),
              key(Header::Status::Value::Error));

    const QJsonObject unknown = answerTo(named("Nothing"));
    EXPECT_EQ(unknown.value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Error));
    EXPECT_EQ(unknown.value(key(Header::Status::ErrorString)).toString(),
              QStringLiteral("Unknown command 'Nothing'"));
}

TEST_F(ServiceDispatcher, TypedRequestsAreDecodedAndAnsweredWithTheirStatus)
{
    QString seenProfile;
    ASSERT_TRUE(registry.addTyped<GetPlanList>(
        [&](const GetPlanList::Request& request, const RequestContext&) {
            seenProfile = request.profile();
            if (request.profile() == QLatin1String("nobody"))
                return TypedOutcome::failed("no such profile");
            auto response = QSharedPointer<GetPlanList::Response>::create();
            response->setPlanList({QJsonObject{{"ID", "x"}}});
            return TypedOutcome::done(*response);
        }));
    EXPECT_FALSE(registry.addTypedAsync(QUuid::createUuid(), {}));

    const QJsonObject done =
        answerTo(typed(GetPlanList::CommandId.toString(), QJsonObject{{"profile", "root"}}));
    EXPECT_EQ(seenProfile, QStringLiteral("root"));
    EXPECT_EQ(done.value(key(Header::Type::Key)).toString(), key(Header::Type::ReplyV2));
    EXPECT_EQ(done.value(key(Header::Id)).toString(), QStringLiteral("t1"));
    EXPECT_EQ(done.value(key(Header::Status::Key)).toInt(), 2);
    GetPlanList::Response decoded;
    ASSERT_TRUE(decoded.fromJson(done.value(key(Header::TypedResponse)).toObject()));
    EXPECT_EQ(decoded.planList(), QJsonArray({QJsonObject{{"ID", "x"}}}));

    const QJsonObject failed =
        answerTo(typed(GetPlanList::CommandId.toString(), QJsonObject{{"profile", "nobody"}}));
    EXPECT_EQ(failed.value(key(Header::Status::Key)).toInt(), 3);
    EXPECT_EQ(failed.value(key(Header::ErrorMessage)).toString(),
              QStringLiteral("no such profile"));

    seenProfile.clear();
    for (const QJsonObject& message :
         {typed(QUuid::createUuid().toString()), typed("not an id"), typed(QJsonValue()),
          typed(GetPlanList::CommandId.toString(), QJsonObject{{"profile", 5}}),
          typed(GetPlanList::CommandId.toString(), "profile")}) {
        const QJsonObject answer = answerTo(message);
        EXPECT_EQ(answer.value(key(Header::Status::Key)).toInt(), 3);
        EXPECT_FALSE(answer.value(key(Header::ErrorMessage)).toString().isEmpty());
    }
    EXPECT_TRUE(seenProfile.isEmpty());
}

TEST_F(ServiceDispatcher, TypedCommandsWaitUntilTheServiceIsReady)
{
    int calls = 0;
    registry.addTyped<GetPlanList>([&](const GetPlanList::Request&, const RequestContext&) {
        ++calls;
        return TypedOutcome::done(GetPlanList::Response());
    });
    dispatcher.setReady(false);
    EXPECT_EQ(answerTo(typed(GetPlanList::CommandId.toString())).value(key(Header::Status::Key)),
              5);
    EXPECT_EQ(calls, 0);
    dispatcher.setReady(true);
    EXPECT_EQ(answerTo(typed(GetPlanList::CommandId.toString())).value(key(Header::Status::Key)),
              2);
    EXPECT_EQ(calls, 1);
}

TEST_F(ServiceDispatcher, LaterAnswersAreSentOnceAndNoRequestGoesUnanswered)
{
    std::optional<NamedResponder> kept;
    registry.addNamedAsync("Later", [&](const QJsonObject&, const RequestContext&,
                                        const NamedResponder& responder) { kept = responder; });
    registry.addNamedAsync("Forget",
                           [](const QJsonObject&, const RequestContext&, const NamedResponder&) {});
    std::optional<TypedResponder> keptTyped;
    registry.addTypedAsync<GetPlanList>(
        [&](const GetPlanList::Request&, const RequestContext&, const TypedResponder& responder) {
            keptTyped = responder;
        });

    EXPECT_TRUE(dispatch(named("Later")).isEmpty());
    ASSERT_TRUE(kept);
    kept->success({{"done", true}});
    kept->failure("too late");
    ASSERT_EQ(answers.size(), 1);
    EXPECT_EQ(answers.at(0).value(key(Header::Data)).toObject(), QJsonObject({{"done", true}}));
    kept.reset();
    EXPECT_EQ(answers.size(), 1);

    const QJsonObject forgotten = answerTo(named("Forget"));
    EXPECT_EQ(forgotten.value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Error));

    EXPECT_TRUE(dispatch(typed(GetPlanList::CommandId.toString())).isEmpty());
    keptTyped.reset();
    ASSERT_EQ(answers.size(), 3);
    EXPECT_EQ(answers.at(2).value(key(Header::Status::Key)).toInt(), 3);
}

TEST_F(ServiceDispatcher, AnswerTooLargeForAFrameBecomesAnError)
{
    registry.addNamed("Huge", [](const QJsonObject&, const RequestContext&) {
        return NamedOutcome::success(
            {{"blob", QString(static_cast<int>(Communication::kMaxFrameSize), QLatin1Char('a'))}});
    });
    const QJsonObject reply = answerTo(named("Huge"));
    EXPECT_EQ(reply.value(key(Header::Status::Key)).toString(), key(Header::Status::Value::Error));
    EXPECT_EQ(reply.value(key(Header::Id)).toString(), QStringLiteral("n1"));
}

TEST_F(ServiceDispatcher, NotificationsReachTheirHandlerWithoutAnswer)
{
    const QUuid type = QUuid::createUuid();
    QList<QJsonObject> received;
    registry.addNotification(
        type, [&](const QJsonObject& message, const RequestContext&) { received.append(message); });
    const auto notification = [](const QUuid& notificationType) {
        return QJsonObject{
            {key(Header::Type::Key), key(Header::Type::Notification)},
            {key(Header::Data),
             QJsonObject{{key(Header::NotificationType), notificationType.toString()},
                         {key(Header::NotificationMessage), QJsonObject{{"Count", 3}}}}}};
    };
    EXPECT_TRUE(dispatch(notification(type)).isEmpty());
    EXPECT_TRUE(dispatch(notification(QUuid::createUuid())).isEmpty());
    EXPECT_TRUE(dispatch({{key(Header::Type::Key), "gossip"}}).isEmpty());
    EXPECT_EQ(received, QList<QJsonObject>({QJsonObject{{"Count", 3}}}));
}
