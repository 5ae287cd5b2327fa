#include "kelCloud/GoogleStorageBackend.h"

#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "kelCloud/S3Backend.h"
#include "support/QtPrinters.h"
#include "support/ReplayHttpServer.h"

#include <QEventLoop>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QTimer>
#include <QUrlQuery>
#include <gtest/gtest.h>

using namespace Kel::Cloud;
using OrvTest::ReplayHttpServer;

namespace {

QByteArray rsaKeyPem()
{
    static const QByteArray pem = [] {
        QProcess openssl;
        openssl.start(QStringLiteral("openssl"),
                      {QStringLiteral("genpkey"), QStringLiteral("-algorithm"),
                       QStringLiteral("RSA"), QStringLiteral("-pkeyopt"),
                       QStringLiteral("rsa_keygen_bits:2048")});
        openssl.waitForFinished(30000);
        return openssl.readAllStandardOutput();
    }();
    return pem;
}

QUrlQuery formOf(const ReplayHttpServer::Request& request)
{
    return QUrlQuery(QString::fromUtf8(request.body));
}

ReplayHttpServer::Reply token(const QByteArray& value, const QByteArray& refresh = {})
{
    return ReplayHttpServer::json(
        200, R"({"access_token":")" + value + R"(","expires_in":3599,"token_type":"Bearer")" +
                 (refresh.isEmpty() ? QByteArray() : R"(,"refresh_token":")" + refresh + '"') +
                 "}");
}

// Replies as the JSON API's reference records them, for the bucket
// "orv-bucket" of the project "orv-project".
class GoogleReplay
{
public:
    GoogleReplay()
    {
        server.route("POST", "/token", {token("ya29.first")});
        server.route(
            "GET", "/storage/v1/b/orv-bucket",
            {ReplayHttpServer::json(200, R"({"kind":"storage#bucket","name":"orv-bucket"})")});
        server.route("POST", "/upload/storage/v1/b/orv-bucket/o",
                     {ReplayHttpServer::json(200, R"({"name":"x","size":"5"})")});
        server.route("DELETE", "/storage/v1/b/orv-bucket/o/", {{204, {}, {}}});
    }

    QVariantMap serviceAccount() const
    {
        const QJsonObject keyFile{{"type", "service_account"},
                                  {"project_id", "orv-project"},
                                  {"private_key", QString::fromLatin1(rsaKeyPem())},
                                  {"client_email", "backup@orv-project.iam.gserviceaccount.com"},
                                  {"token_uri", QString::fromLatin1(server.url() + "/token")}};
        return {
            {QLatin1String(Config::Type), QStringLiteral("GoogleStorage")},
            {QLatin1String(Config::AuthType), QStringLiteral("ServiceAcc")},
            {QLatin1String(Config::PrivateKey), QString::fromUtf8(QJsonDocument(keyFile).toJson())},
            {QLatin1String(Config::Endpoint), QString::fromLatin1(server.url())},
            {QLatin1String(Config::Container), QStringLiteral("orv-bucket")},
            {QLatin1String(Config::RetryAttempts), QStringLiteral("2")},
            {QLatin1String(Config::RetryInterval), QStringLiteral("1")}};
    }

    QVariantMap installedApp(const QString& refreshToken) const
    {
        QVariantMap config = serviceAccount();
        config.remove(QLatin1String(Config::PrivateKey));
        config.insert(QLatin1String(Config::AuthType), QStringLiteral("InstallApp"));
        config.insert(QLatin1String(Config::ProjectId), QStringLiteral("orv-project"));
        config.insert(QLatin1String(Config::AuthCode), QStringLiteral("4/one-time-code"));
        config.insert(QLatin1String(Config::OAuthClientId), QStringLiteral("client-1"));
        config.insert(QLatin1String(Config::OAuthClientSecret), QStringLiteral("secret-1"));
        config.insert(QLatin1String(Config::TokenUrl),
                      QString::fromLatin1(server.url() + "/token"));
        if (!refreshToken.isEmpty())
            config.insert(QLatin1String(Config::RefreshToken), refreshToken);
        return config;
    }

    static std::unique_ptr<Backend> create(const QVariantMap& config)
    {
        Status status;
        auto backend = Backend::create(config, &status);
        EXPECT_TRUE(backend) << status.message.toStdString();
        return backend;
    }

    ReplayHttpServer server;
};

} // namespace

TEST(GoogleStorageBackend, AServiceAccountSignsItsWayToATokenAndChecksTheBucket)
{
    GoogleReplay replay;
    const Status status = replay.create(replay.serviceAccount())->check();
    ASSERT_TRUE(status.ok()) << status.message.toStdString();

    const auto tokens = replay.server.requestsTo("/token");
    ASSERT_EQ(tokens.size(), 1);
    const QUrlQuery form = formOf(tokens[0]);
    EXPECT_EQ(form.queryItemValue(QStringLiteral("grant_type"), QUrl::FullyDecoded),
              QStringLiteral("urn:ietf:params:oauth:grant-type:jwt-bearer"));
    const QList<QByteArray> jwt =
        form.queryItemValue(QStringLiteral("assertion")).toLatin1().split('.');
    ASSERT_EQ(jwt.size(), 3);
    const QJsonObject claims =
        QJsonDocument::fromJson(QByteArray::fromBase64(jwt[1], QByteArray::Base64UrlEncoding))
            .object();
    EXPECT_EQ(claims.value("iss").toString(),
              QStringLiteral("backup@orv-project.iam.gserviceaccount.com"));
    EXPECT_EQ(claims.value("aud").toString().toLatin1(), replay.server.url() + "/token");

    // One token serves every request, as a bearer.
    for (const auto& request : replay.server.requests()) {
        if (request.path() != "/token") {
            EXPECT_EQ(request.header("Authorization"), "Bearer ya29.first")
                << request.target.data();
        }
    }
    const auto probe = replay.server.requestsTo("/upload/");
    ASSERT_EQ(probe.size(), 1);
    EXPECT_TRUE(probe[0].query().startsWith("name=.orv-probe-"));
    EXPECT_TRUE(probe[0].query().endsWith("&uploadType=media"));
    EXPECT_EQ(replay.server.requestsTo("/storage/v1/b/orv-bucket/o/").size(), 1);
}

TEST(GoogleStorageBackend, RefusalsCarryTheServiceReason)
{
    GoogleReplay replay;
    replay.server.route(
        "POST", "/token",
        {ReplayHttpServer::json(
            400, R"({"error":"invalid_grant","error_description":"Invalid JWT Signature."})")});
    Status status = replay.create(replay.serviceAccount())->check();
    EXPECT_EQ(status.error, Operation::Error::Authorization);
    EXPECT_EQ(status.message,
              QStringLiteral("no access token: Invalid JWT Signature. (invalid_grant)"));

    replay.server.route("POST", "/token", {token("ya29.first")});
    replay.server.route(
        "GET", "/storage/v1/b/orv-bucket",
        {ReplayHttpServer::json(
            404,
            R"({"error":{"code":404,"message":"The specified bucket does not exist.","errors":[{"message":"The specified bucket does not exist.","domain":"global","reason":"notFound"}]}})")});
    status = replay.create(replay.serviceAccount())->check();
    EXPECT_EQ(status.error, Operation::Error::ContainerNotFound);
    EXPECT_EQ(status.message, QStringLiteral("The specified bucket does not exist. (notFound)"));

    replay.server.route(
        "GET", "/storage/v1/b/orv-bucket/o/missing",
        {ReplayHttpServer::json(
            404,
            R"({"error":{"code":404,"message":"No such object: orv-bucket/missing","errors":[{"reason":"notFound"}]}})")});
    ObjectInfo info;
    EXPECT_EQ(replay.create(replay.serviceAccount())->stat(QStringLiteral("missing"), &info).error,
              Operation::Error::ObjectNotFound);
}

TEST(GoogleStorageBackend, ARefusedTokenIsRenewedOnceAndThrottlingIsWaitedOut)
{
    GoogleReplay replay;
    replay.server.route("POST", "/token", {token("ya29.first"), token("ya29.second")});
    const auto expired = ReplayHttpServer::json(
        401,
        R"({"error":{"code":401,"message":"Invalid Credentials","errors":[{"reason":"authError"}]}})");
    const auto busy = ReplayHttpServer::json(
        503,
        R"({"error":{"code":503,"message":"We encountered an internal error. Please try again.","errors":[{"reason":"backendError"}]}})");
    replay.server.route(
        "GET", "/storage/v1/b/orv-bucket/o",
        {expired,
         ReplayHttpServer::json(
             429,
             R"({"error":{"code":429,"message":"rate","errors":[{"reason":"rateLimitExceeded"}]}})"),
         ReplayHttpServer::json(
             200,
             R"({"items":[{"name":"a/1","size":"10","updated":"2020-01-27T10:11:12.345Z"}],"nextPageToken":"p2"})"),
         ReplayHttpServer::json(200, R"({"items":[{"name":"a/2","size":"20"}]})"), busy});
    auto backend = replay.create(replay.serviceAccount());
    QList<ObjectInfo> objects;
    const Status status = backend->list(QStringLiteral("a/"), &objects);
    ASSERT_TRUE(status.ok()) << status.message.toStdString();
    ASSERT_EQ(objects.size(), 2);
    EXPECT_EQ(objects[0].size, 10);
    EXPECT_EQ(objects[0].modified, QDateTime(QDate(2020, 1, 27), QTime(10, 11, 12, 345), Qt::UTC));
    const auto listings = replay.server.requestsTo("/storage/v1/b/orv-bucket/o");
    ASSERT_EQ(listings.size(), 4);
    EXPECT_EQ(listings[1].header("Authorization"), "Bearer ya29.second");
    EXPECT_TRUE(listings[3].query().contains("pageToken=p2"));

    const Status exhausted = backend->list(QStringLiteral("a/"), &objects);
    EXPECT_EQ(exhausted.error, Operation::Error::Unknown);
    EXPECT_EQ(exhausted.message,
              QStringLiteral("We encountered an internal error. Please try again. (backendError)"));
    EXPECT_EQ(replay.server.requestsTo("/storage/v1/b/orv-bucket/o").size(), 7);
}

TEST(GoogleStorageBackend, AnAuthorisationCodeIsExchangedOnceForARefreshTokenTheAccountKeeps)
{
    GoogleReplay replay;
    replay.server.route("POST", "/token", {token("ya29.code", "1//refresh")});
    std::unique_ptr<Operation> check(OperationManager::checkConfig(replay.installedApp({})));
    QEventLoop loop;
    QObject::connect(check.get(), &Operation::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    if (!check->isFinished())
        loop.exec();
    ASSERT_EQ(check->error(), Operation::Error::None) << check->errorString().toStdString();
    EXPECT_EQ(check->configChanges(),
              QVariantMap({{QLatin1String(Config::RefreshToken), QStringLiteral("1//refresh")}}));
    QUrlQuery form = formOf(replay.server.requestsTo("/token").last());
    EXPECT_EQ(form.queryItemValue(QStringLiteral("grant_type")),
              QStringLiteral("authorization_code"));
    EXPECT_EQ(form.queryItemValue(QStringLiteral("code"), QUrl::FullyDecoded),
              QStringLiteral("4/one-time-code"));
    EXPECT_EQ(form.queryItemValue(QStringLiteral("client_id")), QStringLiteral("client-1"));

    // With the refresh token kept, the code is not used again.
    replay.server.route("POST", "/token", {token("ya29.refreshed")});
    auto backend = replay.create(replay.installedApp(QStringLiteral("1//refresh")));
    ASSERT_TRUE(backend->check().ok());
    EXPECT_TRUE(backend->configChanges().isEmpty());
    form = formOf(replay.server.requestsTo("/token").last());
    EXPECT_EQ(form.queryItemValue(QStringLiteral("grant_type")), QStringLiteral("refresh_token"));
    EXPECT_EQ(form.queryItemValue(QStringLiteral("refresh_token"), QUrl::FullyDecoded),
              QStringLiteral("1//refresh"));
}

TEST(GoogleStorageBackend, LargeObjectsTravelInAResumableSessionAndReadBackInRanges)
{
    GoogleReplay replay;
    replay.server.route(
        "POST", "/upload/storage/v1/b/orv-bucket/o",
        {{200, {{"Location", replay.server.url() + "/session/s1?upload_id=s1"}}, {}}});
    replay.server.route("PUT", "/session/s1",
                        {{308, {{"Range", "bytes=0-262143"}}, {}},
                         {308, {{"Range", "bytes=0-524287"}}, {}},
                         ReplayHttpServer::json(200, R"({"name":"big"})")});
    replay.server.route("GET", "/storage/v1/b/orv-bucket/o/dir%2Fbig", {{206, {}, "part"}});
    QVariantMap config = replay.serviceAccount();
    config.insert(QLatin1String(Config::PartSize), QString::number(256 * 1024));
    auto backend = replay.create(config);
    const QByteArray data(256 * 1024 * 2 + 100, 'g');
    ASSERT_TRUE(backend->write(QStringLiteral("big"), data).ok());
    const auto chunks = replay.server.requestsTo("/session/s1");
    ASSERT_EQ(chunks.size(), 3);
    EXPECT_EQ(chunks[0].header("Content-Range"), "bytes 0-262143/*");
    EXPECT_EQ(chunks[1].header("Content-Range"), "bytes 262144-524287/*");
    EXPECT_EQ(chunks[2].header("Content-Range"), "bytes 524288-524387/524388");
    EXPECT_EQ(chunks[2].body.size(), 100);
    EXPECT_TRUE(replay.server.requestsTo("/upload/")[0].query().contains("uploadType=resumable"));

    QByteArray back;
    ASSERT_TRUE(backend->read(QStringLiteral("dir/big"), 4, 4, &back).ok());
    EXPECT_EQ(back, "part");
    const auto read = replay.server.requestsTo("/storage/v1/b/orv-bucket/o/dir%2Fbig").last();
    EXPECT_EQ(read.header("Range"), "bytes=4-7");
    EXPECT_EQ(read.query(), "alt=media");
}

TEST(GoogleStorageBackend, HmacKeysGoThroughTheS3InterfaceSignedForRegionAuto)
{
    const QVariantMap config{{QLatin1String(Config::Type), QStringLiteral("GoogleStorage")},
                             {QLatin1String(Config::AuthType), QStringLiteral("AccessKey")},
                             {QLatin1String(Config::AccessKey), QStringLiteral("GOOG1EXAMPLE")},
                             {QLatin1String(Config::SecretKey), QStringLiteral("secret")},
                             {QLatin1String(Config::Container), QStringLiteral("orv-bucket")}};
    auto backend = GoogleReplay::create(config);
    ASSERT_TRUE(backend);
    EXPECT_EQ(static_cast<S3Backend*>(backend.get())->urlOf(QStringLiteral("a b")),
              "https://orv-bucket.storage.googleapis.com/a%20b");

    OrvTest::RecordingHttpServer server;
    server.setDefaultReply({200, {}, "<ListBucketResult/>"});
    QVariantMap local = config;
    local.insert(QLatin1String(Config::Endpoint),
                 QStringLiteral("127.0.0.1:%1").arg(server.port()));
    local.insert(QLatin1String(Config::UseSsl), QStringLiteral("false"));
    QList<ObjectInfo> objects;
    ASSERT_TRUE(GoogleReplay::create(local)->list({}, &objects).ok());
    EXPECT_TRUE(
        server.requests().value(0).header("Authorization").contains("/auto/s3/aws4_request"))
        << server.requests().value(0).header("Authorization").data();
}
