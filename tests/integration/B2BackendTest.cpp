#include "kelCloud/B2Backend.h"

#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "support/QtPrinters.h"
#include "support/ReplayHttpServer.h"

#include <QCryptographicHash>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using namespace Kel::Cloud;
using OrvTest::ReplayHttpServer;

namespace {

const QByteArray BucketId = "4a48fe8875c6214145260818";

// Replies as B2's documentation records them, pointed back at the server.
class B2Replay
{
public:
    B2Replay()
    {
        authorize({authorization("tok-1")});
        server.route("POST", "/b2api/v2/b2_list_buckets",
                     {ReplayHttpServer::json(
                         200, R"({"buckets":[{"accountId":"acc1","bucketId":")" + BucketId +
                                  R"(","bucketName":"orv-backups","bucketType":"allPrivate"},)"
                                  R"({"accountId":"acc1","bucketId":"other-id",)"
                                  R"("bucketName":"orv-other","bucketType":"allPrivate"}]})")});
        server.route("POST", "/b2api/v2/b2_get_upload_url",
                     {ReplayHttpServer::json(
                         200, R"({"bucketId":")" + BucketId + R"(","uploadUrl":")" + server.url() +
                                  R"(/upload/u1","authorizationToken":"up-1"})")});
        server.route("POST", "/upload/", {ReplayHttpServer::json(200, R"({"fileId":"f1"})")});
        server.route("POST", "/b2api/v2/b2_list_file_names",
                     {ReplayHttpServer::json(200, R"({"files":[],"nextFileName":null})")});
        server.route("POST", "/b2api/v2/b2_list_file_versions",
                     {ReplayHttpServer::json(200, R"({"files":[],"nextFileName":null})")});
    }

    void authorize(const QList<ReplayHttpServer::Reply>& replies)
    {
        server.route("GET", "/b2api/v2/b2_authorize_account", replies);
    }

    ReplayHttpServer::Reply authorization(const QByteArray& token) const
    {
        return ReplayHttpServer::json(
            200, R"({"accountId":"acc1","authorizationToken":")" + token + R"(","apiUrl":")" +
                     server.url() + R"(","downloadUrl":")" + server.url() +
                     R"(","recommendedPartSize":100000000,"absoluteMinimumPartSize":5000000,)"
                     R"("allowed":{"capabilities":["listBuckets","writeFiles"],"bucketId":null,)"
                     R"("bucketName":null,"namePrefix":null}})");
    }

    QVariantMap config(const QString& bucket = QStringLiteral("orv-backups")) const
    {
        return {{QLatin1String(Config::Type), QStringLiteral("BackBlaze")},
                {QLatin1String(Config::Endpoint), QString::fromLatin1(server.url())},
                {QLatin1String(Config::KeyId), QStringLiteral("000key")},
                {QLatin1String(Config::ApplicationKey), QStringLiteral("K000secret")},
                {QLatin1String(Config::Container), bucket},
                {QLatin1String(Config::RetryAttempts), QStringLiteral("2")},
                {QLatin1String(Config::RetryInterval), QStringLiteral("1")}};
    }

    std::unique_ptr<Backend> backend(const QString& bucket = QStringLiteral("orv-backups")) const
    {
        Status status;
        auto created = Backend::create(config(bucket), &status);
        EXPECT_TRUE(created) << status.message.toStdString();
        return created;
    }

    ReplayHttpServer server;
};

QJsonObject bodyOf(const ReplayHttpServer::Request& request)
{
    return QJsonDocument::fromJson(request.body).object();
}

} // namespace

TEST(B2Backend, ChecksTheBucketByNameOrIdWithTheKeyAndItsTokens)
{
    B2Replay replay;
    for (const QString& bucket : {QStringLiteral("orv-backups"), QString::fromLatin1(BucketId)}) {
        const Status status = replay.backend(bucket)->check();
        EXPECT_TRUE(status.ok()) << status.message.toStdString();
    }
    const auto authorizations = replay.server.requestsTo("/b2api/v2/b2_authorize_account");
    ASSERT_EQ(authorizations.size(), 2);
    EXPECT_EQ(authorizations[0].header("Authorization"),
              "Basic " + QByteArray("000key:K000secret").toBase64());
    for (const auto& call : replay.server.requestsTo("/b2api/v2/b2_list_file_names")) {
        EXPECT_EQ(call.header("Authorization"), "tok-1");
        EXPECT_EQ(bodyOf(call).value(QStringLiteral("bucketId")).toString(), BucketId);
    }
    // The probe goes to the upload URL with its own token and its SHA-1.
    const auto uploads = replay.server.requestsTo("/upload/u1");
    ASSERT_EQ(uploads.size(), 2);
    EXPECT_EQ(uploads[0].header("Authorization"), "up-1");
    EXPECT_TRUE(uploads[0].header("X-Bz-File-Name").startsWith(".orv-probe-"));
    EXPECT_EQ(uploads[0].header("X-Bz-Content-Sha1"),
              QCryptographicHash::hash("probe", QCryptographicHash::Sha1).toHex());

    QList<ObjectInfo> buckets;
    ASSERT_TRUE(replay.backend()->listContainers(&buckets).ok());
    ASSERT_EQ(buckets.size(), 2);
    EXPECT_EQ(buckets[0].name, QStringLiteral("orv-backups"));
    EXPECT_EQ(buckets[0].id, QString::fromLatin1(BucketId));

    const Status missing = replay.backend(QStringLiteral("orv-none"))->check();
    EXPECT_EQ(missing.error, Operation::Error::ContainerNotFound);
}

TEST(B2Backend, RefusalsCarryTheServiceReason)
{
    B2Replay replay;
    replay.authorize({ReplayHttpServer::json(
        401,
        R"({"status":401,"code":"unauthorized","message":"The applicationKeyId or the applicationKey is wrong."})")});
    const Status status = replay.backend()->check();
    EXPECT_EQ(status.error, Operation::Error::Authorization);
    EXPECT_EQ(
        status.message,
        QStringLiteral("The applicationKeyId or the applicationKey is wrong. (unauthorized)"));
    // A refused key is not asked again and again.
    EXPECT_EQ(replay.server.requestsTo("/b2api/v2/b2_authorize_account").size(), 1);
}

TEST(B2Backend, AnExpiredTokenIsRenewedOnceAndTheCallRepeated)
{
    B2Replay replay;
    replay.authorize({replay.authorization("tok-1"), replay.authorization("tok-2")});
    replay.server.route(
        "POST", "/b2api/v2/b2_list_file_names",
        {ReplayHttpServer::json(
             401,
             R"({"status":401,"code":"expired_auth_token","message":"Authorization token has expired"})"),
         ReplayHttpServer::json(
             200, R"({"files":[{"fileName":"a/one","contentLength":12,"action":"upload",)"
                  R"("uploadTimestamp":1580119872000,"fileId":"f1"}],"nextFileName":null})")});
    QList<ObjectInfo> objects;
    const Status status = replay.backend()->list(QStringLiteral("a/"), &objects);
    ASSERT_TRUE(status.ok()) << status.message.toStdString();
    ASSERT_EQ(objects.size(), 1);
    EXPECT_EQ(objects[0].modified, QDateTime::fromMSecsSinceEpoch(1580119872000, Qt::UTC));
    const auto listings = replay.server.requestsTo("/b2api/v2/b2_list_file_names");
    ASSERT_EQ(listings.size(), 2);
    EXPECT_EQ(listings[1].header("Authorization"), "tok-2");
}

TEST(B2Backend, ThrottlingIsWaitedOutUntilTheAttemptsRunOut)
{
    B2Replay replay;
    const auto busy = ReplayHttpServer::json(
        503, R"({"status":503,"code":"service_unavailable","message":"c001 is too busy"})");
    replay.server.route(
        "POST", "/b2api/v2/b2_list_file_names",
        {ReplayHttpServer::json(
             429, R"({"status":429,"code":"too_many_requests","message":"slow down"})",
             {{"Retry-After", "0"}}),
         ReplayHttpServer::json(200, R"({"files":[],"nextFileName":null})"), busy});
    auto backend = replay.backend();
    QList<ObjectInfo> objects;
    EXPECT_TRUE(backend->list({}, &objects).ok());
    const Status status = backend->list({}, &objects);
    EXPECT_EQ(status.error, Operation::Error::Unknown);
    EXPECT_EQ(status.message, QStringLiteral("c001 is too busy (service_unavailable)"));
    // Two for the first listing, one and two repeats for the second.
    EXPECT_EQ(replay.server.requestsTo("/b2api/v2/b2_list_file_names").size(), 5);

    // A busy upload URL is given up for a fresh one.
    replay.server.route("POST", "/upload/", {busy, ReplayHttpServer::json(200, "{}")});
    EXPECT_TRUE(backend->write(QStringLiteral("x"), QByteArray("data")).ok());
    EXPECT_EQ(replay.server.requestsTo("/b2api/v2/b2_get_upload_url").size(), 2);
}

TEST(B2Backend, ObjectsAreListedInPagesAndReadByNameInRanges)
{
    B2Replay replay;
    replay.server.route(
        "POST", "/b2api/v2/b2_list_file_names",
        {ReplayHttpServer::json(
             200, R"({"files":[{"fileName":"a b","contentLength":3,"action":"upload"},)"
                  R"({"fileName":"big","contentLength":0,"action":"start"}],"nextFileName":"c"})"),
         ReplayHttpServer::json(
             200,
             R"({"files":[{"fileName":"c","contentLength":1,"action":"upload"},)"
             R"({"fileName":".orv-part-1","contentLength":1,"action":"upload"}],"nextFileName":null})")});
    replay.server.route("GET", "/file/orv-backups/a%20b", {{206, {}, "bcd"}});
    replay.server.route("HEAD", "/file/orv-backups/a%20b",
                        {{200, {{"X-Bz-Upload-Timestamp", "1580119872000"}}, "abcd"}});
    replay.server.route("HEAD", "/file/orv-backups/none", {ReplayHttpServer::json(404, "")});
    auto backend = replay.backend();

    QList<ObjectInfo> objects;
    ASSERT_TRUE(backend->list({}, &objects).ok());
    QStringList names;
    for (const ObjectInfo& object : qAsConst(objects))
        names << QStringLiteral("%1=%2").arg(object.name).arg(object.size);
    EXPECT_EQ(names, QStringList({"a b=3", "c=1"}));
    EXPECT_EQ(bodyOf(replay.server.requestsTo("/b2api/v2/b2_list_file_names").last())
                  .value(QStringLiteral("startFileName"))
                  .toString(),
              QStringLiteral("c"));

    QByteArray data;
    ASSERT_TRUE(backend->read(QStringLiteral("a b"), 1, 3, &data).ok());
    EXPECT_EQ(data, "bcd");
    EXPECT_EQ(replay.server.requestsTo("/file/").last().header("Range"), "bytes=1-3");
    ObjectInfo info;
    ASSERT_TRUE(backend->stat(QStringLiteral("a b"), &info).ok());
    EXPECT_EQ(info.size, 4);
    EXPECT_EQ(backend->stat(QStringLiteral("none"), &info).error, Operation::Error::ObjectNotFound);
}

TEST(B2Backend, LargeObjectsTravelInPartsAndAFailureCancelsThem)
{
    B2Replay replay;
    replay.server.route("POST", "/b2api/v2/b2_start_large_file",
                        {ReplayHttpServer::json(200, R"({"fileId":"large-1"})")});
    replay.server.route(
        "POST", "/b2api/v2/b2_get_upload_part_url",
        {ReplayHttpServer::json(200, R"({"fileId":"large-1","uploadUrl":")" + replay.server.url() +
                                         R"(/upload/part","authorizationToken":"pt"})")});
    replay.server.route("POST", "/b2api/v2/b2_finish_large_file",
                        {ReplayHttpServer::json(200, R"({"fileId":"large-1"})")});
    replay.server.route("POST", "/b2api/v2/b2_cancel_large_file",
                        {ReplayHttpServer::json(200, R"({"fileId":"large-1"})")});
    QVariantMap config = replay.config();
    config.insert(QLatin1String(Config::PartSize), QStringLiteral("5000000"));
    Status status;
    auto backend = Backend::create(config, &status);
    ASSERT_TRUE(backend);
    QByteArray data(5000000 + 1000, 'p');
    data[5000000] = 'q';
    ASSERT_TRUE(backend->write(QStringLiteral("big"), data).ok());

    const auto parts = replay.server.requestsTo("/upload/part");
    ASSERT_EQ(parts.size(), 2);
    EXPECT_EQ(parts[0].header("X-Bz-Part-Number"), "1");
    EXPECT_EQ(parts[1].header("X-Bz-Part-Number"), "2");
    EXPECT_EQ(parts[1].body, data.mid(5000000));
    const QJsonArray hashes = bodyOf(replay.server.requestsTo("/b2api/v2/b2_finish_large_file")[0])
                                  .value(QStringLiteral("partSha1Array"))
                                  .toArray();
    ASSERT_EQ(hashes.size(), 2);
    EXPECT_EQ(hashes[1].toString().toLatin1(),
              QCryptographicHash::hash(data.mid(5000000), QCryptographicHash::Sha1).toHex());

    replay.server.route(
        "POST", "/upload/part",
        {ReplayHttpServer::json(200, "{}"),
         ReplayHttpServer::json(
             400, R"({"status":400,"code":"bad_request","message":"sha1 did not match"})")});
    status = backend->write(QStringLiteral("big"), data);
    EXPECT_EQ(status.message, QStringLiteral("sha1 did not match (bad_request)"));
    EXPECT_EQ(replay.server.requestsTo("/b2api/v2/b2_cancel_large_file").size(), 1);
}

TEST(B2Backend, RemovingDeletesEveryVersion)
{
    B2Replay replay;
    replay.server.route(
        "POST", "/b2api/v2/b2_list_file_versions",
        {ReplayHttpServer::json(
             200, R"({"files":[{"fileName":"x","fileId":"v2"},)"
                  R"({"fileName":"x","fileId":"v1"},{"fileName":"xy","fileId":"v9"}]})"),
         ReplayHttpServer::json(200, R"({"files":[{"fileName":"xy","fileId":"v9"}]})")});
    replay.server.route("POST", "/b2api/v2/b2_delete_file_version",
                        {ReplayHttpServer::json(200, "{}")});
    ASSERT_TRUE(replay.backend()->remove(QStringLiteral("x")).ok());
    QStringList deleted;
    for (const auto& call : replay.server.requestsTo("/b2api/v2/b2_delete_file_version"))
        deleted << bodyOf(call).value(QStringLiteral("fileId")).toString();
    EXPECT_EQ(deleted, QStringList({"v2", "v1"}));
}
