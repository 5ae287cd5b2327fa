#include "kelCloud/AzureBlobBackend.h"

#include "kelCloud/AzureBlobClient.h"
#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "support/AzuritePeer.h"
#include "support/BackendContract.h"
#include "support/QtPrinters.h"
#include "support/RecordingHttpServer.h"

#include <QBuffer>
#include <QEventLoop>
#include <QJsonObject>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Kel::Cloud;
using OrvTest::AzuritePeer;

namespace {

const QStringList Containers{QStringLiteral("orv-test"), QStringLiteral("orv-blocks"),
                             QStringLiteral("orv-pages"), QStringLiteral("orv-other")};

std::unique_ptr<Backend> create(const QVariantMap& config)
{
    Status status;
    auto backend = Backend::create(config, &status);
    EXPECT_TRUE(backend) << status.message.toStdString();
    return backend;
}

QByteArray pattern(int size)
{
    QByteArray data(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        data[i] = static_cast<char>(i * 31 % 253);
    return data;
}

Operation* finished(Operation* operation)
{
    QEventLoop loop;
    QObject::connect(operation, &Operation::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    if (!operation->isFinished())
        loop.exec();
    return operation;
}

// One emulator for the suite: starting node takes most of a second.
class AzureBlobBackendTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        peer = new AzuritePeer(Containers);
        startError = new QString;
        peer->start(startError);
    }

    static void TearDownTestSuite()
    {
        delete peer;
        delete startError;
    }

    void SetUp() override { ASSERT_TRUE(startError->isEmpty()) << startError->toStdString(); }

    static AzuritePeer* peer;
    static QString* startError;
};

AzuritePeer* AzureBlobBackendTest::peer = nullptr;
QString* AzureBlobBackendTest::startError = nullptr;

} // namespace

TEST_F(AzureBlobBackendTest, ChecksAndListsContainersThroughTheOperations)
{
    std::unique_ptr<Operation> check(
        finished(OperationManager::checkConfig(peer->config(QStringLiteral("orv-other")))));
    EXPECT_EQ(check->error(), Operation::Error::None) << check->errorString().toStdString();

    std::unique_ptr<Operation> listing(
        finished(OperationManager::listContainers(peer->config(QStringLiteral("orv-other")))));
    ASSERT_EQ(listing->error(), Operation::Error::None) << listing->errorString().toStdString();
    QStringList names;
    for (const QJsonValue& value : listing->result()) {
        names << value.toObject().value(QStringLiteral("Name")).toString();
        EXPECT_FALSE(value.toObject().value(QStringLiteral("CreationDate")).toString().isEmpty());
    }
    names.sort();
    QStringList expected = Containers;
    expected.sort();
    EXPECT_EQ(names, expected);

    // The check's probe left nothing behind.
    QList<ObjectInfo> objects;
    ASSERT_TRUE(create(peer->config(QStringLiteral("orv-other")))->list({}, &objects).ok());
    EXPECT_TRUE(objects.isEmpty());
}

TEST_F(AzureBlobBackendTest, AWrongKeyOrAMissingContainerIsReportedInTheServiceWords)
{
    QVariantMap config = peer->config();
    config.insert(QLatin1String(Config::SharedKey),
                  QString::fromLatin1(QByteArray(64, 'k').toBase64()));
    const Status refused = create(config)->check();
    EXPECT_EQ(refused.error, Operation::Error::Authorization);
    EXPECT_TRUE(refused.message.contains(QStringLiteral("Authoriz")) ||
                refused.message.contains(QStringLiteral("Authenticat")))
        << refused.message.toStdString();
    QList<ObjectInfo> containers;
    EXPECT_EQ(create(config)->listContainers(&containers).error, Operation::Error::Authorization);

    const Status missing = create(peer->config(QStringLiteral("orv-none")))->check();
    EXPECT_EQ(missing.error, Operation::Error::ContainerNotFound);
    EXPECT_TRUE(missing.message.contains(QStringLiteral("ContainerNotFound")))
        << missing.message.toStdString();
}

TEST_F(AzureBlobBackendTest, ObjectsRoundTrip)
{
    OrvTest::exerciseObjects(*create(peer->config(QStringLiteral("orv-test"))));
}

TEST_F(AzureBlobBackendTest, LargeObjectsTravelAsBlocksAndReadBackAcrossThem)
{
    QVariantMap config = peer->config(QStringLiteral("orv-blocks"));
    config.insert(QLatin1String(Config::PartSize), QString::number(64 * 1024));
    auto backend = create(config);
    const QByteArray data = pattern(64 * 1024 * 3 + 1000);

    // Streamed without a size, and from memory with one.
    QBuffer source;
    source.setData(data);
    source.open(QIODevice::ReadOnly);
    ASSERT_TRUE(backend->write(QStringLiteral("big/streamed"), &source, -1).ok());
    ASSERT_TRUE(backend->write(QStringLiteral("big/sized"), data).ok());
    for (const QString& name : {QStringLiteral("big/streamed"), QStringLiteral("big/sized")}) {
        QByteArray back;
        ASSERT_TRUE(backend->read(name, 0, -1, &back).ok());
        EXPECT_TRUE(back == data) << name.toStdString();
        ASSERT_TRUE(backend->read(name, 64 * 1024 - 10, 64 * 1024 + 20, &back).ok());
        EXPECT_TRUE(back == data.mid(64 * 1024 - 10, 64 * 1024 + 20));
    }

    // The service holds the object as four committed blocks.
    AzureBlobClient::Settings settings;
    settings.account = QLatin1String(AzuritePeer::Account);
    settings.key = AzuritePeer::Key;
    settings.serviceUrl = peer->endpoint().toUtf8() + '/' + AzuritePeer::Account;
    settings.container = QStringLiteral("orv-blocks");
    AzureBlobClient client(settings);
    AzureBlobClient::Request request;
    request.blob = QStringLiteral("big/streamed");
    request.query = {{QStringLiteral("comp"), QStringLiteral("blocklist")},
                     {QStringLiteral("blocklisttype"), QStringLiteral("committed")}};
    AzureBlobClient::Response response;
    ASSERT_TRUE(client.send(request, &response).ok());
    EXPECT_EQ(response.body.count("<Block>"), 4) << response.body.toStdString();

    // A block upload that fails half-way leaves the old object as it was.
    QBuffer shortSource;
    shortSource.setData(pattern(64 * 1024 * 2));
    shortSource.open(QIODevice::ReadOnly);
    EXPECT_FALSE(backend->write(QStringLiteral("big/sized"), &shortSource, 64 * 1024 * 4).ok());
    ObjectInfo info;
    ASSERT_TRUE(backend->stat(QStringLiteral("big/sized"), &info).ok());
    EXPECT_EQ(info.size, data.size());
}

TEST_F(AzureBlobBackendTest, ListingsFollowTheMarkers)
{
    auto backend = create(peer->config(QStringLiteral("orv-pages")));
    static_cast<AzureBlobBackend*>(backend.get())->setListPageSize(2);
    for (int i = 0; i < 5; ++i)
        ASSERT_TRUE(backend->write(QStringLiteral("p/%1").arg(i), QByteArray(i, 'x')).ok());
    QList<ObjectInfo> objects;
    ASSERT_TRUE(backend->list(QStringLiteral("p/"), &objects).ok());
    QStringList names;
    for (const ObjectInfo& object : qAsConst(objects))
        names << QStringLiteral("%1=%2").arg(object.name).arg(object.size);
    names.sort();
    EXPECT_EQ(names, QStringList({"p/0=0", "p/1=1", "p/2=2", "p/3=3", "p/4=4"}));
}

TEST(AzureBlobRetries, BusyAnswersAreRepeatedUntilTheAttemptsRunOut)
{
    OrvTest::RecordingHttpServer server;
    const OrvTest::RecordingHttpServer::Reply busy{
        503,
        {{"x-ms-error-code", "ServerBusy"}},
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><Error><Code>ServerBusy</Code><Message>The "
        "server is busy.\nRequestId:7</Message></Error>"};
    server.enqueue({429, {}, {}});
    server.enqueue(busy);
    server.setDefaultReply({200, {}, "0123456789"});
    QVariantMap config{
        {QLatin1String(Config::Type), QStringLiteral("AzureBlob")},
        {QLatin1String(Config::AzureType), QStringLiteral("Custom")},
        {QLatin1String(Config::Endpoint), QStringLiteral("http://127.0.0.1:%1").arg(server.port())},
        {QLatin1String(Config::AccountName), QStringLiteral("acct")},
        {QLatin1String(Config::SharedKey), QLatin1String(AzuritePeer::Key)},
        {QLatin1String(Config::Container), QStringLiteral("c")},
        {QLatin1String(Config::RetryAttempts), QStringLiteral("2")},
        {QLatin1String(Config::RetryInterval), QStringLiteral("1")},
    };
    QByteArray data;
    ASSERT_TRUE(create(config)->read(QStringLiteral("o"), 2, 3, &data).ok());
    EXPECT_EQ(data, "0123456789");
    const auto requests = server.requests();
    ASSERT_EQ(requests.size(), 3);
    // Each repeat is signed afresh and asks for the same range.
    for (const auto& request : requests) {
        EXPECT_EQ(request.path(), "/acct/c/o");
        EXPECT_EQ(request.header("x-ms-range"), "bytes=2-4");
        EXPECT_TRUE(request.header("Authorization").startsWith("SharedKey acct:"));
    }

    for (int i = 0; i < 3; ++i)
        server.enqueue(busy);
    const Status status = create(config)->read(QStringLiteral("o"), 0, -1, &data);
    EXPECT_EQ(status.error, Operation::Error::Unknown);
    EXPECT_EQ(status.message, QStringLiteral("The server is busy. (ServerBusy)"));
    EXPECT_EQ(server.requests().size(), 6);
}
