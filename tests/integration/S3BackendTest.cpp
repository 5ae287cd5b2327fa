#include "kelCloud/S3Backend.h"

#include "kelCloud/Config.h"
#include "kelCloud/Operation.h"
#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/Certificate.h"
#include "kelNetwork/Ssl/PeerCertificates.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"
#include "support/BackendContract.h"
#include "support/ConnectProxy.h"
#include "support/QtPrinters.h"
#include "support/S3Peer.h"

#include <QEventLoop>
#include <QJsonObject>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTimer>
#include <gtest/gtest.h>

using namespace Kel::Cloud;
using Kel::Network::Ssl::Certificate;
using Kel::Network::Ssl::SslCertificateCache;
using OrvTest::S3Peer;

namespace {

Status check(const QVariantMap& config)
{
    Status status;
    auto backend = Backend::create(config, &status);
    return backend ? backend->check() : status;
}

std::unique_ptr<Backend> create(const QVariantMap& config)
{
    Status status;
    auto backend = Backend::create(config, &status);
    EXPECT_TRUE(backend) << status.message.toStdString();
    return backend;
}

QStringList containerNames(const QJsonArray& result)
{
    QStringList names;
    for (const QJsonValue& value : result)
        names << value.toObject().value(QStringLiteral("Name")).toString();
    names.sort();
    return names;
}

void waitFor(Operation* operation)
{
    QEventLoop loop;
    QObject::connect(operation, &Operation::finished, &loop, &QEventLoop::quit);
    QTimer::singleShot(20000, &loop, &QEventLoop::quit);
    if (!operation->isFinished())
        loop.exec();
}

// One server per suite: starting node takes most of a second.
template <bool Https> class S3PeerTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        peer = new S3Peer(Https, {QStringLiteral("orv-test"), QStringLiteral("orv-v2"),
                                  QStringLiteral("orv-parts"), QStringLiteral("orv-pages"),
                                  QStringLiteral("orv-other")});
        startError = new QString;
        peer->start(startError);
    }

    static void TearDownTestSuite()
    {
        delete peer;
        delete startError;
    }

    void SetUp() override
    {
        ASSERT_TRUE(startError->isEmpty()) << startError->toStdString();
        SslCertificateCache::instance()->update({});
    }

    void TearDown() override
    {
        SslCertificateCache::instance()->update({});
        Kel::Network::GlobalConfig::instance()->setIgnoreSslErrors(false);
    }

    static S3Peer* peer;
    static QString* startError;
};

template <bool Https> S3Peer* S3PeerTest<Https>::peer = nullptr;
template <bool Https> QString* S3PeerTest<Https>::startError = nullptr;

using S3BackendTest = S3PeerTest<false>;
using S3TlsTest = S3PeerTest<true>;

} // namespace

TEST_F(S3BackendTest, ChecksAndListsBucketsWithEitherSignature)
{
    for (const char* signature : {"0", "1", "AWS2", "AWS4"}) {
        const QVariantMap config =
            peer->config(QStringLiteral("orv-other"), QLatin1String(signature));
        const Status status = check(config);
        EXPECT_TRUE(status.ok()) << signature << ' ' << status.message.toStdString();
        QList<ObjectInfo> buckets;
        ASSERT_TRUE(create(config)->listContainers(&buckets).ok()) << signature;
        QStringList names;
        for (const ObjectInfo& bucket : buckets) {
            names << bucket.name;
            EXPECT_TRUE(bucket.modified.isValid());
        }
        names.sort();
        EXPECT_EQ(names,
                  QStringList({"orv-other", "orv-pages", "orv-parts", "orv-test", "orv-v2"}));
    }
    // The probe of the checks left nothing behind.
    QList<ObjectInfo> objects;
    ASSERT_TRUE(create(peer->config(QStringLiteral("orv-other")))->list({}, &objects).ok());
    EXPECT_TRUE(objects.isEmpty());
}

TEST_F(S3BackendTest, ObjectsRoundTripWithVersion4Signatures)
{
    OrvTest::exerciseObjects(
        *create(peer->config(QStringLiteral("orv-test"), QStringLiteral("1"))));
}

TEST_F(S3BackendTest, ObjectsRoundTripWithVersion2Signatures)
{
    // The server checks these signatures, sub-resources included.
    OrvTest::exerciseObjects(*create(peer->config(QStringLiteral("orv-v2"), QStringLiteral("0"))));
}

TEST_F(S3BackendTest, LargeObjectsTravelInPartsAndReadBackAcrossThem)
{
    QByteArray data(int(S3Backend::MinPartSize) * 2 + 12345, Qt::Uninitialized);
    for (int i = 0; i < data.size(); ++i)
        data[i] = static_cast<char>(i * 31 % 253);
    for (const char* signature : {"0", "1"}) {
        QVariantMap config = peer->config(QStringLiteral("orv-parts"), QLatin1String(signature));
        config.insert(QLatin1String(Config::PartSize), QString::number(S3Backend::MinPartSize));
        auto s3 = create(config);
        const QString name = QStringLiteral("big/object %1").arg(QLatin1String(signature));
        const Status written = s3->write(name, data);
        ASSERT_TRUE(written.ok()) << written.message.toStdString();
        ObjectInfo info;
        ASSERT_TRUE(s3->stat(name, &info).ok());
        EXPECT_EQ(info.size, data.size());
        QByteArray back;
        ASSERT_TRUE(s3->read(name, 0, -1, &back).ok());
        EXPECT_TRUE(back == data) << signature;
        const qint64 boundary = S3Backend::MinPartSize - 10;
        ASSERT_TRUE(s3->read(name, boundary, 20, &back).ok());
        EXPECT_EQ(back, data.mid(int(boundary), 20));
    }
}

TEST_F(S3BackendTest, ListingsFollowEveryPage)
{
    Status status;
    auto s3 =
        S3Backend::create(Type::S3Compatible, peer->config(QStringLiteral("orv-pages")), &status);
    ASSERT_TRUE(s3) << status.message.toStdString();
    static_cast<S3Backend*>(s3.get())->setListPageSize(2);
    for (int i = 0; i < 7; ++i)
        ASSERT_TRUE(s3->write(QStringLiteral("p/%1").arg(i), QByteArray::number(i)).ok());
    ASSERT_TRUE(s3->write(QStringLiteral("q"), QByteArray("q")).ok());
    QList<ObjectInfo> objects;
    ASSERT_TRUE(s3->list(QStringLiteral("p/"), &objects).ok());
    EXPECT_EQ(objects.size(), 7);
    ASSERT_TRUE(s3->list({}, &objects).ok());
    EXPECT_EQ(objects.size(), 8);
}

TEST_F(S3BackendTest, RefusalsCarryTheServersReason)
{
    QVariantMap wrongSecret = peer->config(QStringLiteral("orv-other"), QStringLiteral("0"));
    wrongSecret.insert(QLatin1String(Config::SecretKey), QStringLiteral("not-the-secret"));
    Status status = check(wrongSecret);
    EXPECT_EQ(status.error, Operation::Error::Authorization);
    EXPECT_TRUE(status.message.contains(QStringLiteral("(SignatureDoesNotMatch)")))
        << status.message.toStdString();

    for (const char* signature : {"0", "1"}) {
        QVariantMap unknownKey =
            peer->config(QStringLiteral("orv-other"), QLatin1String(signature));
        unknownKey.insert(QLatin1String(Config::AccessKey), QStringLiteral("NOBODY"));
        status = check(unknownKey);
        EXPECT_EQ(status.error, Operation::Error::Authorization) << signature;
        EXPECT_TRUE(status.message.contains(QStringLiteral("(InvalidAccessKeyId)")))
            << status.message.toStdString();

        status = check(peer->config(QStringLiteral("orv-missing"), QLatin1String(signature)));
        EXPECT_EQ(status.error, Operation::Error::ContainerNotFound) << signature;
        EXPECT_TRUE(status.message.contains(QStringLiteral("(NoSuchBucket)")))
            << status.message.toStdString();
    }

    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::LocalHost, 0));
    QVariantMap closed = peer->config();
    closed.insert(QLatin1String(Config::Endpoint),
                  QStringLiteral("127.0.0.1:%1").arg(holder.serverPort()));
    holder.close();
    status = check(closed);
    EXPECT_EQ(status.error, Operation::Error::Unreachable);
    EXPECT_TRUE(status.message.startsWith(QStringLiteral("cannot reach 127.0.0.1:")))
        << status.message.toStdString();

    QVariantMap noEndpoint = peer->config();
    noEndpoint.remove(QLatin1String(Config::Endpoint));
    status = check(noEndpoint);
    EXPECT_EQ(status.error, Operation::Error::InvalidConfiguration);
}

TEST_F(S3BackendTest, OperationsReportThroughTheEventLoop)
{
    std::unique_ptr<Operation> list(OperationManager::listContainers(peer->config()));
    waitFor(list.get());
    ASSERT_EQ(list->error(), Operation::Error::None) << list->errorString().toStdString();
    EXPECT_TRUE(containerNames(list->result()).contains(QStringLiteral("orv-test")));

    QVariantMap wrongSecret = peer->config(QStringLiteral("orv-test"), QStringLiteral("0"));
    wrongSecret.insert(QLatin1String(Config::SecretKey), QStringLiteral("nope"));
    std::unique_ptr<Operation> check(OperationManager::checkConfig(wrongSecret));
    waitFor(check.get());
    EXPECT_EQ(check->error(), Operation::Error::Authorization);
    EXPECT_TRUE(check->errorString().contains(QStringLiteral("signature")))
        << check->errorString().toStdString();
}

TEST_F(S3TlsTest, UntrustedUntilTheCacheHoldsTheCertificate)
{
    const QVariantMap config = peer->config(QStringLiteral("orv-test"), QStringLiteral("1"));
    Status status = check(config);
    ASSERT_EQ(status.error, Operation::Error::UntrustedCertificate) << status.message.toStdString();
    EXPECT_TRUE(status.message.contains(QStringLiteral("not trusted")));
    // The chain as presented: the server's own certificate first.
    const QList<Certificate> presented = Certificate::readAll(status.peerCertificates);
    ASSERT_EQ(presented.size(), 2);
    EXPECT_EQ(presented.at(0), Certificate(peer->certificates().serverPem));
    EXPECT_EQ(presented.at(1), Certificate(peer->certificates().caPem));
    EXPECT_EQ(Kel::Network::Ssl::fetchPeerCertificates(peer->endpoint()), status.peerCertificates);

    // Trusting the server's certificate alone is enough.
    SslCertificateCache::instance()->update({presented.at(0).to()});
    status = check(config);
    EXPECT_TRUE(status.ok()) << status.message.toStdString();

    SslCertificateCache::instance()->update({peer->certificates().caPem});
    EXPECT_TRUE(check(config).ok());

    // A replaced cache no longer trusts what it dropped.
    SslCertificateCache::instance()->update({});
    EXPECT_EQ(check(config).error, Operation::Error::UntrustedCertificate);

    Kel::Network::GlobalConfig::instance()->setIgnoreSslErrors(true);
    EXPECT_TRUE(check(config).ok());
}

TEST_F(S3TlsTest, TheOperationCarriesTheChainForThePrompt)
{
    std::unique_ptr<Operation> list(OperationManager::listContainers(peer->config()));
    waitFor(list.get());
    EXPECT_EQ(list->error(), Operation::Error::UntrustedCertificate);
    EXPECT_EQ(Certificate::readAll(list->peerCertificates()).value(0),
              Certificate(peer->certificates().serverPem));

    SslCertificateCache::instance()->update({list->peerCertificates()});
    std::unique_ptr<Operation> again(OperationManager::listContainers(peer->config()));
    waitFor(again.get());
    EXPECT_EQ(again->error(), Operation::Error::None) << again->errorString().toStdString();
    EXPECT_EQ(containerNames(again->result()).size(), 5);
}

TEST_F(S3TlsTest, RequestsAndTheChainGoThroughTheProxy)
{
    OrvTest::ConnectProxy proxy;
    QVariantMap config = peer->config(QStringLiteral("orv-other"));
    config.insert(QLatin1String(Config::ProxyType), QStringLiteral("Http"));
    config.insert(QLatin1String(Config::ProxyHost), QStringLiteral("127.0.0.1"));
    config.insert(QLatin1String(Config::ProxyPort), QString::number(proxy.port()));
    const Status untrusted = check(config);
    ASSERT_EQ(untrusted.error, Operation::Error::UntrustedCertificate);
    EXPECT_EQ(Certificate::readAll(untrusted.peerCertificates).size(), 2);

    SslCertificateCache::instance()->update({peer->certificates().serverPem});
    EXPECT_TRUE(check(config).ok());
    // The failed handshake, the chain's fetch, then the check's own requests.
    EXPECT_GE(proxy.targets().size(), 3);
    for (const QByteArray& target : proxy.targets())
        EXPECT_EQ(target, peer->endpoint().toLatin1());
}

TEST_F(S3TlsTest, BundleAndTrustedFileOfTheGlobalConfigurationAreTrusted)
{
    using Kel::Network::GlobalConfig;
    QTemporaryDir dir;
    const QString file = dir.filePath(QStringLiteral("trust.pem"));
    const auto trustOnly = [&](const QByteArray& pem) {
        QFile out(file);
        out.open(QIODevice::WriteOnly);
        out.write(pem);
    };
    const QVariantMap config = peer->config();

    trustOnly(peer->certificates().caPem);
    GlobalConfig::instance()->setCaInfoPath(file);
    EXPECT_TRUE(check(config).ok());
    GlobalConfig::instance()->setCaInfoPath({});
    EXPECT_EQ(check(config).error, Operation::Error::UntrustedCertificate);

    trustOnly(peer->certificates().serverPem);
    GlobalConfig::instance()->setTrustedCertificatesPath(file);
    EXPECT_TRUE(check(config).ok());
    GlobalConfig::instance()->setTrustedCertificatesPath({});
}
