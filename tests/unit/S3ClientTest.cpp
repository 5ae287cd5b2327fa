#include "kelCloud/Config.h"
#include "kelCloud/S3Backend.h"
#include "support/Aws4Reference.h"
#include "support/QtPrinters.h"
#include "support/RecordingHttpServer.h"

#include <gtest/gtest.h>

using namespace Kel::Cloud;
using OrvTest::Aws4Reference;
using OrvTest::RecordingHttpServer;
using Reply = RecordingHttpServer::Reply;

namespace {

const QByteArray Secret = "s3cr3t/Key+with=odd~chars";

QByteArray errorDocument(const char* code, const char* message)
{
    return QByteArray("<?xml version=\"1.0\" encoding=\"UTF-8\"?><Error><Code>") + code +
           "</Code><Message>" + message + "</Message><RequestId>r</RequestId></Error>";
}

Reply reply(int status, const QByteArray& body = {},
            const QList<QPair<QByteArray, QByteArray>>& headers = {})
{
    return Reply{status, headers, body};
}

class S3ClientTest : public ::testing::Test
{
protected:
    std::unique_ptr<Backend> backend(const QString& signature = QStringLiteral("AWS4"),
                                     int retries = 2)
    {
        const QVariantMap config{
            {QLatin1String(Config::Endpoint), QStringLiteral("127.0.0.1:%1").arg(server.port())},
            {QLatin1String(Config::UseSsl), QStringLiteral("false")},
            {QLatin1String(Config::AccessKey), QStringLiteral("AKIDTEST")},
            {QLatin1String(Config::SecretKey), QString::fromLatin1(Secret)},
            {QLatin1String(Config::Container), QStringLiteral("bucket")},
            {QLatin1String(Config::SignatureVersion), signature},
            {QLatin1String(Config::PartSize), QString::number(S3Backend::MinPartSize)},
            {QLatin1String(Config::RetryAttempts), QString::number(retries)},
            {QLatin1String(Config::RetryInterval), QStringLiteral("1")},
        };
        Status status;
        auto created = S3Backend::create(Type::Minio, config, &status);
        EXPECT_TRUE(status.ok()) << status.message.toStdString();
        return created;
    }

    RecordingHttpServer server;
};

} // namespace

TEST_F(S3ClientTest, EveryKindOfRequestCarriesAValidVersion4Signature)
{
    auto s3 = backend();
    const QByteArray large(int(S3Backend::MinPartSize) + 1000, 'x');
    server.enqueue(reply(200)); // check: list
    server.enqueue(reply(200)); // check: probe written
    server.enqueue(reply(204)); // check: probe deleted
    server.enqueue(reply(200)); // small object
    server.enqueue(reply(206, "ell"));
    server.enqueue(reply(200, "<ListBucketResult><IsTruncated>false</IsTruncated>"
                              "</ListBucketResult>"));
    server.enqueue(reply(200, "<ListAllMyBucketsResult><Buckets/></ListAllMyBucketsResult>"));
    server.enqueue(reply(200, "<InitiateMultipartUploadResult><UploadId>up/1=2</UploadId>"
                              "</InitiateMultipartUploadResult>"));
    server.enqueue(reply(200, {}, {{"ETag", "\"p1\""}}));
    server.enqueue(reply(200, {}, {{"ETag", "\"p2\""}}));
    server.enqueue(reply(200, "<CompleteMultipartUploadResult/>"));
    server.enqueue(reply(204));

    ASSERT_TRUE(s3->check().ok());
    ASSERT_TRUE(s3->write(QStringLiteral("dir/a b+c é~(1).bin"), QByteArray("hello")).ok());
    QByteArray data;
    ASSERT_TRUE(s3->read(QStringLiteral("dir/a b+c é~(1).bin"), 1, 3, &data).ok());
    EXPECT_EQ(data, "ell");
    QList<ObjectInfo> objects;
    ASSERT_TRUE(s3->list(QStringLiteral("dir/a b=&/"), &objects).ok());
    QList<ObjectInfo> buckets;
    ASSERT_TRUE(s3->listContainers(&buckets).ok());
    ASSERT_TRUE(s3->write(QStringLiteral("big"), large).ok());
    ASSERT_TRUE(s3->remove(QStringLiteral("big")).ok());

    const QList<RecordingHttpServer::Request> requests = server.requests();
    ASSERT_EQ(requests.size(), 12);
    for (const auto& request : requests)
        EXPECT_EQ(Aws4Reference::verify(request, Secret), QString())
            << request.method.toStdString() << ' ' << request.target.toStdString();
    EXPECT_EQ(requests.at(4).header("Range"), "bytes=1-3");
    EXPECT_EQ(requests.at(7).query(), "uploads=");
    EXPECT_EQ(requests.at(8).query(), "partNumber=1&uploadId=up%2F1%3D2");
    EXPECT_EQ(requests.at(8).body.size(), S3Backend::MinPartSize);
    EXPECT_EQ(requests.at(9).body.size(), 1000);
    EXPECT_TRUE(requests.at(10).body.contains("<ETag>&quot;p2&quot;</ETag>"));
}

TEST_F(S3ClientTest, BusyServerIsAskedAgainThenGivenUpOnWithItsReason)
{
    auto s3 = backend(QStringLiteral("AWS2"), 2);
    server.enqueue(reply(503, errorDocument("SlowDown", "Please reduce your request rate.")));
    server.enqueue(reply(429, {}, {{"Retry-After", "0"}}));
    server.enqueue(reply(200));
    EXPECT_TRUE(s3->write(QStringLiteral("a"), QByteArray("1")).ok());
    EXPECT_EQ(server.requests().size(), 3);

    for (int i = 0; i < 3; ++i)
        server.enqueue(
            reply(500, errorDocument("InternalError", "We encountered an internal error.")));
    const Status status = s3->write(QStringLiteral("a"), QByteArray("1"));
    EXPECT_EQ(status.error, Operation::Error::Unknown);
    EXPECT_EQ(status.message, "We encountered an internal error. (InternalError)");
    EXPECT_EQ(server.requests().size(), 6);

    // Refusals are final at once.
    server.enqueue(reply(403, errorDocument("AccessDenied", "Access Denied")));
    const Status denied = s3->write(QStringLiteral("a"), QByteArray("1"));
    EXPECT_EQ(denied.error, Operation::Error::Authorization);
    EXPECT_EQ(denied.message, "Access Denied (AccessDenied)");
    EXPECT_EQ(server.requests().size(), 7);
}

TEST_F(S3ClientTest, AnswersWithoutADocumentAreJudgedByTheirStatus)
{
    auto s3 = backend();
    ObjectInfo info;
    server.enqueue(reply(404));
    EXPECT_EQ(s3->stat(QStringLiteral("gone"), &info).error, Operation::Error::ObjectNotFound);
    server.enqueue(reply(403));
    EXPECT_EQ(s3->stat(QStringLiteral("hidden"), &info).error, Operation::Error::Authorization);
    server.enqueue(reply(200, "12345", {{"Last-Modified", "Wed, 21 Oct 2015 07:28:00 GMT"}}));
    ASSERT_TRUE(s3->stat(QStringLiteral("here"), &info).ok());
    EXPECT_EQ(info.size, 5);
    EXPECT_EQ(info.modified, QDateTime(QDate(2015, 10, 21), QTime(7, 28), Qt::UTC));
    // Reading from beyond the end gives nothing, without failing.
    server.enqueue(
        reply(416, errorDocument("InvalidRange", "The requested range is not satisfiable")));
    QByteArray data = "stale";
    EXPECT_TRUE(s3->read(QStringLiteral("here"), 100, -1, &data).ok());
    EXPECT_TRUE(data.isEmpty());
    EXPECT_EQ(server.requests().last().header("Range"), "bytes=100-");
    // Deleting what is not there is done.
    server.enqueue(reply(404, errorDocument("NoSuchKey", "The specified key does not exist.")));
    EXPECT_TRUE(s3->remove(QStringLiteral("gone")).ok());
    server.enqueue(
        reply(404, errorDocument("NoSuchBucket", "The specified bucket does not exist")));
    EXPECT_EQ(s3->remove(QStringLiteral("gone")).error, Operation::Error::ContainerNotFound);
}

TEST_F(S3ClientTest, FailedCompletionAbortsTheUpload)
{
    auto s3 = backend();
    server.enqueue(reply(200, "<InitiateMultipartUploadResult><UploadId>u</UploadId>"
                              "</InitiateMultipartUploadResult>"));
    server.enqueue(reply(200, {}, {{"ETag", "\"p1\""}}));
    server.enqueue(reply(200, {}, {{"ETag", "\"p2\""}}));
    server.enqueue(reply(200, errorDocument("InternalError", "Completion failed")));
    server.enqueue(reply(204));
    const Status status =
        s3->write(QStringLiteral("big"), QByteArray(int(S3Backend::MinPartSize) * 2, 'y'));
    EXPECT_FALSE(status.ok());
    EXPECT_TRUE(status.message.contains(QStringLiteral("Completion failed")));
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 5);
    EXPECT_EQ(requests.last().method, "DELETE");
    EXPECT_EQ(requests.last().query(), "uploadId=u");
}

TEST_F(S3ClientTest, BucketOfAnotherRegionIsFollowedOnce)
{
    auto s3 = backend();
    server.enqueue(reply(400, errorDocument("AuthorizationHeaderMalformed", "wrong region"),
                         {{"x-amz-bucket-region", "eu-west-3"}}));
    server.enqueue(reply(200));
    ASSERT_TRUE(s3->write(QStringLiteral("a"), QByteArray("1")).ok());
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 2);
    EXPECT_TRUE(requests.at(0).header("Authorization").contains("/us-east-1/s3/"));
    EXPECT_TRUE(requests.at(1).header("Authorization").contains("/eu-west-3/s3/"));
    EXPECT_EQ(Aws4Reference::verify(requests.at(1), Secret), QString());
}
