// What the service answers: the plan and account lists from the instance's
// configuration folders, and refusals for what it does not know.

#include "integration/ServiceRawClient.h"
#include "kelCore/AtomicFile.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "support/Sandbox.h"

#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <gtest/gtest.h>

using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
namespace Communication = Orv::Common::Communication;
namespace Format = Communication::Commands::Format;
namespace Header = Format::Header;
using GetPlanList = Communication::V2::Plan::GetPlanList;

namespace {

const QString kDailyId = QStringLiteral("{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}");
const QString kWeeklyId = QStringLiteral("{0d2b9e61-3f4a-4c5d-8e7f-9a0b1c2d3e4f}");
const QString kAccountId = QStringLiteral("{a1b2c3d4-e5f6-4711-8899-aabbccddeeff}");

QString key(const char* text)
{
    return QLatin1String(text);
}

QByteArray planXml(const QString& id, const QString& name, const QString& type = "Backup")
{
    return QStringLiteral("<?xml version=\"1.0\"?>\n<Plan ID=\"%1\" Name=\"%2\" Type=\"%3\" "
                          "Storage=\"%4\"><Sources/></Plan>\n")
        .arg(id, name, type, kAccountId)
        .toUtf8();
}

QJsonArray listOf(ServiceRawClient& client, const char* command, const char* member)
{
    const auto reply = client.call(key(command));
    if (!reply) {
        ADD_FAILURE() << "no reply to " << command;
        return {};
    }
    EXPECT_EQ(reply->value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Success));
    return reply->value(key(Header::Data)).toObject().value(key(member)).toArray();
}

QJsonArray planList(ServiceRawClient& client)
{
    return listOf(client, Format::Plan::GetList::Name, Format::Plan::GetList::Reply::Key);
}

QStringList namesOf(const QJsonArray& rows, const char* member = "Name")
{
    QStringList names;
    for (const QJsonValue& row : rows)
        names.append(row.toObject().value(key(member)).toString());
    return names;
}

} // namespace

TEST(ServiceRequests, ListsPlansAndAccountsFromTheirFilesSkippingBrokenOnes)
{
    Sandbox sandbox;
    sandbox.writeFile("config/plans/" + kDailyId + ".xml", planXml(kDailyId, "Daily"));
    sandbox.writeFile("config/plans/" + kWeeklyId + ".xml",
                      planXml(kWeeklyId, "Weekly", "Restore"));
    sandbox.writeFile("config/plans/truncated.xml", "<Plan ID=\"{6c1f7a52-0b7e");
    sandbox.writeFile("config/plans/other.xml", "<Account ID=\"" + kAccountId.toUtf8() + "\"/>");
    sandbox.writeFile("config/plans/no-id.xml", "<Plan Name=\"Nameless\"/>");
    sandbox.writeFile("config/plans/notes.txt", planXml(QUuid::createUuid().toString(), "Text"));
    const QJsonObject account{
        {"ID", kAccountId}, {"DisplayName", "Office NAS"}, {"Type", 4}, {"Path", "/mnt/nas"}};
    sandbox.writeFile("config/accounts/" + kAccountId + ".json", QJsonDocument(account).toJson());
    sandbox.writeFile("config/accounts/broken.json", "{\"ID\": \"{a1b2");
    sandbox.writeFile("config/accounts/list.json", "[]");
    sandbox.writeFile("config/accounts/anonymous.json", "{\"DisplayName\": \"No ID\"}");
    sandbox.writeFile("config/accounts/untyped.json", "{\"ID\": \"{a1b2}\", \"Type\": 99}");
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient client(sandbox.socketPath());

    const QJsonArray plans = planList(client);
    ASSERT_EQ(plans.size(), 2);
    const QJsonObject weekly = plans.at(0).toObject();
    EXPECT_EQ(weekly.value("ID").toString(), kWeeklyId);
    EXPECT_EQ(weekly.value("Name").toString(), QStringLiteral("Weekly"));
    EXPECT_EQ(weekly.value("Type").toString(), QStringLiteral("Restore"));
    EXPECT_EQ(weekly.value("Storage").toString(), kAccountId);
    EXPECT_EQ(weekly.value("PlanXml").toString().toUtf8(), planXml(kWeeklyId, "Weekly", "Restore"));
    EXPECT_EQ(plans.at(1).toObject().value("ID").toString(), kDailyId);

    const QJsonArray accounts = listOf(client, Format::Storage::GetConnection::Name,
                                       Format::Storage::GetConnection::Reply::Key);
    ASSERT_EQ(accounts.size(), 1);
    // The stored record, completed with what the service knows of the storage.
    QJsonObject reported = account;
    reported.insert("Prefix", QString());
    reported.insert("PrefixArray", QJsonArray());
    reported.insert("SpaceLimit", 0);
    reported.insert("SpaceUsed", 0);
    reported.insert("DetailParams", QJsonObject());
    reported.insert("SyncStatus", false);
    EXPECT_EQ(accounts.at(0).toObject(), reported);

    const QByteArray log = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    for (const char* skipped : {"truncated.xml", "other.xml", "no-id.xml", "broken.json",
                                "list.json", "anonymous.json", "untyped.json"})
        EXPECT_TRUE(log.contains(skipped)) << skipped;
    EXPECT_FALSE(log.contains("notes.txt"));
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(ServiceRequests, PlanFileChangesShowInTheNextReply)
{
    Sandbox sandbox;
    const QString daily = sandbox.path("config/plans/" + kDailyId + ".xml");
    const QString weekly = sandbox.path("config/plans/" + kWeeklyId + ".xml");
    // No plans or accounts folder yet: the plans folder appears with the
    // first plan.
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient client(sandbox.socketPath());
    ASSERT_EQ(planList(client), QJsonArray());
    EXPECT_EQ(listOf(client, Format::Storage::GetConnection::Name,
                     Format::Storage::GetConnection::Reply::Key),
              QJsonArray());
    ASSERT_EQ(Kel::Core::AtomicFile::write(daily, planXml(kDailyId, "Daily")), QString());
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Daily"}));

    ASSERT_EQ(Kel::Core::AtomicFile::write(weekly, planXml(kWeeklyId, "Weekly")), QString());
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Weekly", "Daily"}));

    ASSERT_EQ(Kel::Core::AtomicFile::write(daily, planXml(kDailyId, "Daily at noon")), QString());
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Weekly", "Daily at noon"}));

    // Rewritten in place, as an editor might.
    sandbox.writeFile("config/plans/" + kWeeklyId + ".xml", "<Plan broken");
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Daily at noon"}));
    sandbox.writeFile("config/plans/" + kWeeklyId + ".xml", planXml(kWeeklyId, "Weekly again"));
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Weekly again", "Daily at noon"}));
    // Same size and inode; where file times are coarse, the same times too.
    for (const char* name : {"Weekly AGAIN", "weekly again"}) {
        sandbox.writeFile("config/plans/" + kWeeklyId + ".xml", planXml(kWeeklyId, name));
        EXPECT_EQ(namesOf(planList(client)), QStringList({name, "Daily at noon"}));
    }

    ASSERT_TRUE(QFile::remove(daily));
    EXPECT_EQ(namesOf(planList(client)), QStringList({"weekly again"}));

    // The whole folder replaced by another one.
    QDir config(sandbox.path(QStringLiteral("config")));
    ASSERT_TRUE(config.rename(QStringLiteral("plans"), QStringLiteral("plans.old")));
    EXPECT_EQ(planList(client), QJsonArray());
    ASSERT_EQ(Kel::Core::AtomicFile::write(daily, planXml(kDailyId, "Daily again")), QString());
    EXPECT_EQ(namesOf(planList(client)), QStringList({"Daily again"}));
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(ServiceRequests, UnknownAndMalformedRequestsGetErrorReplies)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient client(sandbox.socketPath());

    const auto unknown = client.call(QStringLiteral("PlanSelfDestruct"));
    ASSERT_TRUE(unknown);
    EXPECT_EQ(unknown->value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Error));
    EXPECT_TRUE(
        unknown->value(key(Header::Status::ErrorString)).toString().contains("PlanSelfDestruct"));
    EXPECT_EQ(unknown->value(key(Header::Id)).toString(), QStringLiteral("1"));

    const auto badParams = client.send({{key(Header::Type::Key), key(Header::Type::Request)},
                                        {key(Header::Command), key(Format::Plan::GetList::Name)},
                                        {key(Header::Id), "p"},
                                        {key(Header::Params), "profile=root"}});
    ASSERT_TRUE(badParams);
    const auto badParamsReply = client.receive();
    ASSERT_TRUE(badParamsReply);
    EXPECT_EQ(badParamsReply->value(key(Header::Status::Key)).toString(),
              key(Header::Status::Value::Error));

    const auto typed = [&client](const QJsonValue& commandId, const QJsonValue& request) {
        EXPECT_TRUE(client.send({{key(Header::Type::Key), key(Header::Type::RequestV2)},
                                 {key(Header::CommandId), commandId},
                                 {key(Header::Id), "t"},
                                 {key(Header::TypedRequest), request}}));
        return client.receive().value_or(QJsonObject());
    };
    const QJsonObject unknownId = typed(QUuid::createUuid().toString(), QJsonObject());
    EXPECT_EQ(unknownId.value(key(Header::Type::Key)).toString(), key(Header::Type::ReplyV2));
    EXPECT_EQ(unknownId.value(key(Header::Status::Key)).toInt(), 3);
    EXPECT_TRUE(unknownId.value(key(Header::ErrorMessage)).toString().contains("Unknown command"));
    EXPECT_EQ(typed("not a uuid", QJsonObject()).value(key(Header::Status::Key)).toInt(), 3);
    const QJsonObject malformed =
        typed(GetPlanList::CommandId.toString(), QJsonObject({{"profile", 42}}));
    EXPECT_EQ(malformed.value(key(Header::Status::Key)).toInt(), 3);
    EXPECT_TRUE(malformed.value(key(Header::ErrorMessage)).toString().contains("malformed"));

    // None of that cost the connection.
    EXPECT_EQ(planList(client), QJsonArray());
    EXPECT_EQ(sandbox.stopService(), 0);
}
