// The account messages of the channel and the record both programs read.

#include "CommandBase.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Registry.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvCommon/Communication/V2/SaveStorage.h"
#include "orvInfo/StorageConnection.h"

#include <QJsonArray>
#include <gtest/gtest.h>
#include <memory>

namespace V2 = Orv::Common::Communication::V2;
using Orv::Common::Communication::Registry;

TEST(StorageCommands, TypedRequestsTravelWholeAndRefuseOtherShapes)
{
    V2::Storage::SaveStorage::Request save;
    save.setId(QUuid::createUuid());
    save.setDisplayName(QStringLiteral(" Office "));
    save.setPrefix(QStringLiteral("desk"));
    save.setProfile(QStringLiteral("root"));
    save.setType(11);
    save.setParams({{QStringLiteral("Container"), QStringLiteral("bucket")}});
    V2::Storage::SaveStorage::Request decoded;
    ASSERT_TRUE(decoded.fromJson(save.toJson()));
    EXPECT_EQ(decoded.toJson(), save.toJson());
    EXPECT_EQ(decoded.displayName(), QStringLiteral(" Office "));

    for (const char* broken : {"id", "params", "type"}) {
        QJsonObject object = save.toJson();
        object.remove(QLatin1String(broken));
        EXPECT_FALSE(decoded.fromJson(object)) << broken;
    }
    QJsonObject badId = save.toJson();
    badId.insert(QStringLiteral("id"), QStringLiteral("not an id"));
    EXPECT_FALSE(decoded.fromJson(badId));

    V2::GetConnection::Request get;
    EXPECT_TRUE(get.fromJson({}));
    EXPECT_TRUE(get.id().isNull());
    EXPECT_FALSE(get.withSecrets());
    get.setId(save.id());
    get.setWithSecrets(true);
    V2::GetConnection::Request copy;
    ASSERT_TRUE(copy.fromJson(get.toJson()));
    EXPECT_EQ(copy.id(), save.id());
    EXPECT_TRUE(copy.withSecrets());
    EXPECT_FALSE(copy.fromJson({{QStringLiteral("withSecrets"), QStringLiteral("yes")}}));

    V2::GetConnection::Response response;
    EXPECT_FALSE(response.fromJson({}));
    EXPECT_TRUE(response.fromJson({{QStringLiteral("connections"), QJsonArray{QJsonObject()}}}));
    EXPECT_EQ(response.connections().size(), 1);
}

TEST(StorageCommands, TheChannelKnowsEveryAccountAndTrustedStoreCommand)
{
    for (const char* name : {"StorageGetConnection", "StorageDeleteFileSystem",
                             "SynchronizeRepository", "ReadFromSslStorage", "AppendToSslStorage",
                             "WriteToSslStorage", "RemoveFromSslStorage", "GetPeerSslCertificate"})
        EXPECT_TRUE(Registry::isNamedCommand(QLatin1String(name))) << name;
    for (const QUuid& id : {V2::GetConnection::CommandId, V2::Storage::SaveStorage::CommandId}) {
        std::unique_ptr<V2::Command> command(Registry::createTypedCommand(id));
        ASSERT_TRUE(command) << id.toString().toStdString();
        EXPECT_TRUE(command->createRequest());
    }
    EXPECT_NE(V2::GetConnection::CommandId, V2::Storage::SaveStorage::CommandId);
}

TEST(StorageCommands, RecordsRoundTripAndToleratePartsOfTheWrongKind)
{
    Orv::Info::Storage::Connection connection;
    connection.setId(QUuid::createUuid());
    connection.setDisplayName(QStringLiteral("Office"));
    connection.setType(1);
    connection.setPath(QStringLiteral("/srv"));
    connection.setPrefixArray({QStringLiteral("a"), QStringLiteral("b")});
    connection.setSpaceUsed(5000000000LL);
    connection.setSyncStatus(true);
    const QJsonObject record = connection.toRecord();
    for (const char* key : {"DisplayName", "ID", "Path", "Prefix", "PrefixArray", "Type",
                            "SpaceLimit", "SpaceUsed", "DetailParams", "SyncStatus"})
        EXPECT_TRUE(record.contains(QLatin1String(key))) << key;
    EXPECT_EQ(Orv::Info::Storage::Connection::fromRecord(record).toRecord(), record);

    QJsonObject odd = record;
    odd.insert(QStringLiteral("PrefixArray"), QStringLiteral("not a list"));
    odd.insert(QStringLiteral("DetailParams"), 3);
    const auto read = Orv::Info::Storage::Connection::fromRecord(odd);
    EXPECT_TRUE(read.prefixArray().isEmpty());
    EXPECT_TRUE(read.detailParams().isEmpty());
    EXPECT_EQ(read.spaceUsed(), 5000000000LL);
    EXPECT_FALSE(Orv::Info::Storage::Connection::fromRecord({{"DisplayName", "x"}}).isValid());
}

namespace {

class Probe : public Orv::CLI::CommandBase
{
public:
    Probe(const char* name, bool logKey) : CommandBase(QLatin1String(name), QString())
    {
        addOption(QCommandLineOption({QStringLiteral("a"), QStringLiteral("key")}, QString(),
                                     QStringLiteral("value")),
                  logKey);
    }
    int process(const QStringList& words) override { return initProcess(words) ? 4 : 2; }
};

} // namespace

TEST(StorageCommands, AnOptionLoggedByOneCommandStaysMaskedInAnother)
{
    Probe plain("plain", true);
    Probe secret("secret", false);
    ASSERT_EQ(plain.process({QStringLiteral("-a"), QStringLiteral("visible")}), 4);
    ASSERT_EQ(secret.process({QStringLiteral("--key"), QStringLiteral("hidden")}), 4);
    EXPECT_EQ(plain.logInfo(), QStringList({QStringLiteral("-a"), QStringLiteral("visible")}));
    EXPECT_EQ(secret.logInfo(), QStringList({QStringLiteral("--key"), QStringLiteral("****")}));
}
