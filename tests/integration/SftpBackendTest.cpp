#include "kelCloud/Backend.h"
#include "kelCloud/Config.h"
#include "support/BackendContract.h"
#include "support/ConnectProxy.h"
#include "support/QtPrinters.h"
#include "support/SftpPeer.h"

#include <QDir>
#include <QFile>
#include <QTcpServer>
#include <gtest/gtest.h>

using namespace Kel::Cloud;
using OrvTest::SftpPeer;

namespace {

class SftpBackendTest : public ::testing::Test
{
protected:
    static void SetUpTestSuite()
    {
        peer = new SftpPeer;
        startError = new QString;
        if (!peer->start(startError))
            return;
    }

    static void TearDownTestSuite()
    {
        delete peer;
        peer = nullptr;
        delete startError;
    }

    void SetUp() override { ASSERT_TRUE(startError->isEmpty()) << startError->toStdString(); }

    static std::unique_ptr<Backend> backend(const QVariantMap& config)
    {
        Status status;
        auto created = Backend::create(config, &status);
        EXPECT_TRUE(created) << status.message.toStdString();
        return created;
    }

    static Status check(const QVariantMap& config)
    {
        Status status;
        auto created = Backend::create(config, &status);
        return created ? created->check() : status;
    }

    static SftpPeer* peer;
    static QString* startError;
};

SftpPeer* SftpBackendTest::peer = nullptr;
QString* SftpBackendTest::startError = nullptr;

} // namespace

TEST_F(SftpBackendTest, PasswordLoginThenObjectsRoundTrip)
{
    const QString folder = peer->makeFolder(QStringLiteral("round"));
    auto sftp = backend(peer->config(folder));
    const Status checked = sftp->check();
    ASSERT_TRUE(checked.ok()) << checked.message.toStdString();
    OrvTest::exerciseObjects(*sftp);
}

TEST_F(SftpBackendTest, KeyLoginWithTheKeysText)
{
    peer->makeFolder(QStringLiteral("keyed"));
    QVariantMap config = peer->config(peer->path(QStringLiteral("keyed")));
    config.remove(QLatin1String(Config::Password));
    config.insert(QLatin1String(Config::PrivateKey), QString::fromLatin1(peer->clientKey()));
    auto sftp = backend(config);
    ASSERT_TRUE(sftp->check().ok());
    ASSERT_TRUE(sftp->write(QStringLiteral("k/one"), QByteArray("key")).ok());
    QByteArray data;
    ASSERT_TRUE(sftp->read(QStringLiteral("k/one"), 0, -1, &data).ok());
    EXPECT_EQ(data, "key");

    config.insert(QLatin1String(Config::PrivateKey), QString::fromLatin1(peer->strangerKey()));
    const Status stranger = check(config);
    EXPECT_EQ(stranger.error, Operation::Error::Authorization);
    EXPECT_TRUE(stranger.message.contains(QStringLiteral("refused the private key")))
        << stranger.message.toStdString();

    config.insert(QLatin1String(Config::PrivateKey), QStringLiteral("not a key"));
    EXPECT_EQ(check(config).error, Operation::Error::InvalidConfiguration);
}

TEST_F(SftpBackendTest, RefusalsAreToldApart)
{
    const QString folder = peer->makeFolder(QStringLiteral("refusals"));
    QVariantMap config = peer->config(folder);

    QVariantMap wrongPassword = config;
    wrongPassword.insert(QLatin1String(Config::Password), QStringLiteral("wrong"));
    Status status = check(wrongPassword);
    EXPECT_EQ(status.error, Operation::Error::Authorization);
    EXPECT_TRUE(status.message.contains(QStringLiteral("refused the password of user orvtest")))
        << status.message.toStdString();

    status = check(peer->config(folder + QStringLiteral("/missing")));
    EXPECT_EQ(status.error, Operation::Error::ContainerNotFound);
    EXPECT_TRUE(status.message.contains(QStringLiteral("does not exist")))
        << status.message.toStdString();

    // A folder the user may enter but not write into.
    const QString closed = peer->makeFolder(QStringLiteral("closed"), 0755, false);
    status = check(peer->config(closed));
    EXPECT_EQ(status.error, Operation::Error::Authorization);
    EXPECT_TRUE(status.message.contains(QStringLiteral("cannot write into")))
        << status.message.toStdString();

    QFile plain(folder + QStringLiteral("/plain"));
    ASSERT_TRUE(plain.open(QIODevice::WriteOnly));
    plain.close();
    EXPECT_EQ(check(peer->config(plain.fileName())).error, Operation::Error::ContainerNotFound);

    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::LocalHost, 0));
    QVariantMap closedPort = config;
    closedPort.insert(QLatin1String(Config::Port), QString::number(holder.serverPort()));
    holder.close();
    status = check(closedPort);
    EXPECT_EQ(status.error, Operation::Error::Unreachable);
    EXPECT_TRUE(status.message.contains(QStringLiteral("cannot connect to 127.0.0.1")))
        << status.message.toStdString();

    QVariantMap noUser = config;
    noUser.remove(QLatin1String(Config::User));
    EXPECT_EQ(check(noUser).error, Operation::Error::InvalidConfiguration);
}

TEST_F(SftpBackendTest, HostKeyIsRecordedOnFirstContactAndHeldToAfter)
{
    const QString folder = peer->makeFolder(QStringLiteral("pinned"));
    const QString knownHosts = peer->path(QStringLiteral("known_hosts"));
    QVariantMap config = peer->config(folder);
    config.insert(QLatin1String(Config::KnownHostsFile), knownHosts);
    Status status = check(config);
    ASSERT_TRUE(status.ok()) << status.message.toStdString();
    QFile file(knownHosts);
    ASSERT_TRUE(file.open(QIODevice::ReadOnly));
    const QByteArray recorded = file.readAll();
    file.close();
    EXPECT_TRUE(recorded.contains(peer->hostKeyLine())) << recorded.toStdString();
    status = check(config);
    ASSERT_TRUE(status.ok()) << status.message.toStdString();

    // Another key for the same server: refused, and the record stays.
    ASSERT_TRUE(file.open(QIODevice::WriteOnly));
    file.write(
        QStringLiteral("[127.0.0.1]:%1 ssh-ed25519 "
                       "AAAAC3NzaC1lZDI1NTE5AAAAIOMqqnkVzrm0SdG6UOoqKLsabgH5C9okWi0dh2l9GKJl\n")
            .arg(peer->port())
            .toLatin1());
    file.close();
    const Status changed = check(config);
    EXPECT_EQ(changed.error, Operation::Error::Authorization);
    EXPECT_TRUE(changed.message.contains(QStringLiteral("host key")))
        << changed.message.toStdString();
}

TEST_F(SftpBackendTest, ContainersAreTheFoldersBesideTheContainer)
{
    peer->makeFolder(QStringLiteral("list/mine"));
    peer->makeFolder(QStringLiteral("list/theirs"));
    auto sftp = backend(peer->config(peer->path(QStringLiteral("list/mine"))));
    QList<ObjectInfo> containers;
    const Status status = sftp->listContainers(&containers);
    ASSERT_TRUE(status.ok()) << status.message.toStdString();
    QStringList names;
    for (const ObjectInfo& container : containers)
        names << container.name;
    names.sort();
    EXPECT_EQ(names, QStringList({peer->path(QStringLiteral("list/mine")),
                                  peer->path(QStringLiteral("list/theirs"))}));
}

TEST_F(SftpBackendTest, ReachesTheServerThroughTheProxyWhenAsked)
{
    OrvTest::ConnectProxy proxy;
    proxy.requireLogin("proxy-user", "proxy-pass");
    QVariantMap config = peer->config(peer->makeFolder(QStringLiteral("proxied")));
    config.insert(QLatin1String(Config::ProxyType), QStringLiteral("Http"));
    config.insert(QLatin1String(Config::ProxyHost), QStringLiteral("127.0.0.1"));
    config.insert(QLatin1String(Config::ProxyPort), QString::number(proxy.port()));
    config.insert(QLatin1String(Config::ProxyUser), QStringLiteral("proxy-user"));
    config.insert(QLatin1String(Config::ProxyPassword), QStringLiteral("proxy-pass"));

    config.insert(QLatin1String(Config::UseProxy), QStringLiteral("true"));
    auto sftp = backend(config);
    ASSERT_TRUE(sftp->check().ok());
    ASSERT_TRUE(sftp->write(QStringLiteral("through"), QByteArray("proxy")).ok());
    const QByteArray target = QStringLiteral("127.0.0.1:%1").arg(peer->port()).toLatin1();
    EXPECT_EQ(proxy.targets(), QList<QByteArray>({target}));

    config.insert(QLatin1String(Config::UseProxy), QStringLiteral("false"));
    ASSERT_TRUE(check(config).ok());
    EXPECT_EQ(proxy.targets().size(), 1);

    config.insert(QLatin1String(Config::UseProxy), QStringLiteral("true"));
    config.insert(QLatin1String(Config::ProxyPassword), QStringLiteral("wrong"));
    const Status refused = check(config);
    EXPECT_EQ(refused.error, Operation::Error::Unreachable);
    EXPECT_TRUE(refused.message.contains(QStringLiteral("through the proxy")))
        << refused.message.toStdString();
}

TEST_F(SftpBackendTest, ConnectionsLeaveNoDescriptorsBehind)
{
    const auto openDescriptors = [] {
        return QDir(QStringLiteral("/proc/self/fd"))
            .entryList(QDir::NoDotAndDotDot | QDir::AllEntries)
            .size();
    };
    QVariantMap config = peer->config(peer->makeFolder(QStringLiteral("descriptors")));
    const int before = openDescriptors();
    {
        OrvTest::ConnectProxy proxy;
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(check(config).ok());
        config.insert(QLatin1String(Config::ProxyType), QStringLiteral("Http"));
        config.insert(QLatin1String(Config::ProxyHost), QStringLiteral("127.0.0.1"));
        config.insert(QLatin1String(Config::ProxyPort), QString::number(proxy.port()));
        config.insert(QLatin1String(Config::UseProxy), QStringLiteral("true"));
        for (int i = 0; i < 3; ++i)
            ASSERT_TRUE(check(config).ok());
        EXPECT_EQ(proxy.targets().size(), 3);
    }
    EXPECT_EQ(openDescriptors(), before);
}
