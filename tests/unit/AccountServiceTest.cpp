// The service's account pieces on their own: secrets sealed and masked, the
// trusted-certificate file, and one synchronisation pass per account.

#include "kelCloud/Config.h"
#include "orvCommon/LocalSecret.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/accounts/RepositorySync.h"
#include "service/accounts/StorageState.h"
#include "service/trust/TrustedStore.h"
#include "support/TestCertificates.h"
#include "unit/TemporaryInstance.h"

#include <QDeadlineTimer>
#include <QEventLoop>
#include <QJsonDocument>
#include <QTimer>
#include <gtest/gtest.h>
#include <mutex>

using Orv::Service::AccountCatalog;
using Orv::Service::AccountSecrets;
using Orv::Service::RepositorySync;
using Orv::Service::StorageState;
using Orv::Service::TrustedStore;
namespace Config = Kel::Cloud::Config;

TEST(AccountSecrets, SealedAtRestMaskedWhenShownAndKeptThroughAMaskedEdit)
{
    TemporaryInstance instance;
    QJsonObject params{{Config::SecretKey, "s3cr3t"},
                       {Config::Password, ""},
                       {Config::AccessKey, "AKIA"},
                       {Config::Container, "bucket"}};
    QString error;
    ASSERT_TRUE(AccountSecrets::seal(&params, {}, &error)) << error.toStdString();
    const QString sealed = params.value(Config::SecretKey).toString();
    EXPECT_TRUE(Orv::Common::LocalSecret::isEncrypted(sealed));
    EXPECT_EQ(params.value(Config::AccessKey).toString(), QStringLiteral("AKIA"));
    EXPECT_EQ(params.value(Config::Password).toString(), QString());

    const QJsonObject shown = AccountSecrets::masked(params);
    EXPECT_EQ(shown.value(Config::SecretKey).toString(), QStringLiteral("****"));
    EXPECT_EQ(shown.value(Config::Password).toString(), QString()) << "nothing to hide";
    EXPECT_EQ(shown.value(Config::Container).toString(), QStringLiteral("bucket"));

    // An edit made from a masked record keeps the stored secret.
    QJsonObject edited = shown;
    ASSERT_TRUE(AccountSecrets::seal(&edited, params, &error));
    EXPECT_EQ(edited.value(Config::SecretKey).toString(), sealed);
    ASSERT_TRUE(AccountSecrets::open(&edited, &error));
    EXPECT_EQ(edited.value(Config::SecretKey).toString(), QStringLiteral("s3cr3t"));

    // A value that merely looks sealed is a secret like any other.
    QJsonObject lookalike{{Config::Password, sealed}};
    ASSERT_TRUE(AccountSecrets::seal(&lookalike, {}, &error));
    ASSERT_TRUE(AccountSecrets::open(&lookalike, &error));
    EXPECT_EQ(lookalike.value(Config::Password).toString(), sealed);

    // Sealed under another installation's key: refused, not garbled.
    TemporaryInstance other;
    QJsonObject foreign{{Config::SecretKey, sealed}};
    EXPECT_FALSE(AccountSecrets::open(&foreign, &error));
}

TEST(TrustedStore, KeepsCertificatesOnlyOnceAndInOrder)
{
    TemporaryInstance instance;
    const OrvTest::TestCertificates first = OrvTest::TestCertificates::make();
    const OrvTest::TestCertificates second = OrvTest::TestCertificates::make();
    TrustedStore store(instance.path(QStringLiteral("config/trusted.pem")));
    bool changed = false;
    EXPECT_TRUE(store.certificates().isEmpty());

    EXPECT_EQ(store.append("prose around\n" + first.chainPem() + "trailing", &changed), QString());
    EXPECT_TRUE(changed);
    ASSERT_EQ(store.certificates().size(), 2);
    EXPECT_EQ(store.certificates().at(0).toLatin1(), first.serverPem);
    EXPECT_EQ(store.append(first.serverPem, &changed), QString());
    EXPECT_FALSE(changed) << "already there";
    EXPECT_FALSE(store.append("no certificate here", &changed).isEmpty());
    EXPECT_FALSE(changed);

    EXPECT_EQ(store.append(second.serverPem, &changed), QString());
    EXPECT_EQ(store.remove(first.caPem, &changed), QString());
    EXPECT_EQ(store.certificates(), QStringList({QString::fromLatin1(first.serverPem),
                                                 QString::fromLatin1(second.serverPem)}));
    EXPECT_EQ(store.pem(), first.serverPem + second.serverPem);

    EXPECT_EQ(store.write(second.caPem, &changed), QString());
    EXPECT_EQ(store.pem(), second.caPem);
    EXPECT_EQ(store.write(QByteArray(), &changed), QString());
    EXPECT_TRUE(store.certificates().isEmpty());
    EXPECT_FALSE(store.write("garbage", &changed).isEmpty());
}

namespace {

// A scanner that holds its pass until released.
struct HeldScanner
{
    std::mutex mutex;
    std::condition_variable released;
    bool open = false;
    QVariantMap seen;

    RepositorySync::Scanner scanner()
    {
        return [this](const QVariantMap& config, const std::atomic_bool& cancelled) {
            std::unique_lock<std::mutex> lock(mutex);
            seen = config;
            released.wait(lock, [&] { return open || cancelled; });
            RepositorySync::Result result;
            result.spaceUsed = 42;
            result.prefixes = QStringList{QStringLiteral("pc")};
            return result;
        };
    }
    void release()
    {
        std::lock_guard<std::mutex> lock(mutex);
        open = true;
        released.notify_all();
    }
};

} // namespace

TEST(RepositorySync, OnePassPerAccountWithItsSecretsOpened)
{
    TemporaryInstance instance;
    AccountCatalog catalog(instance.path(QStringLiteral("config/accounts")));
    StorageState state;
    const QUuid id = QUuid::createUuid();
    QJsonObject params{{Config::Type, "S3Compatible"}, {Config::SecretKey, "open me"}};
    QString error;
    ASSERT_TRUE(AccountSecrets::seal(&params, {}, &error));
    ASSERT_EQ(
        catalog.save(
            {{"ID", id.toString()}, {"DisplayName", "A"}, {"Type", 11}, {"DetailParams", params}}),
        QString());

    HeldScanner held;
    RepositorySync sync(catalog, state, held.scanner());
    QStringList ended;
    QEventLoop loop;
    QObject::connect(&sync, &RepositorySync::passEnded, &loop,
                     [&](const QUuid&, const QString& reason) {
                         ended.append(reason);
                         loop.quit();
                     });
    EXPECT_FALSE(sync.start(QUuid::createUuid(), &error));
    EXPECT_EQ(error, QStringLiteral("Error: specified account doesn't exist.\n"));

    const quint64 before = sync.generation();
    ASSERT_TRUE(sync.start(id, &error)) << error.toStdString();
    EXPECT_TRUE(sync.isRunning(id));
    EXPECT_NE(sync.generation(), before);
    EXPECT_FALSE(sync.start(id, &error));
    EXPECT_EQ(error, QStringLiteral("Error: sync is started.\n"));

    held.release();
    QTimer::singleShot(10000, &loop, &QEventLoop::quit);
    loop.exec();
    ASSERT_EQ(ended.size(), 1);
    EXPECT_FALSE(sync.isRunning(id));
    EXPECT_EQ(held.seen.value(Config::SecretKey).toString(), QStringLiteral("open me"));
    // Without a database the result cannot be kept; the pass says so.
    EXPECT_FALSE(ended.first().isEmpty());
}

TEST(RepositorySync, StoppingCancelsRunningPasses)
{
    TemporaryInstance instance;
    AccountCatalog catalog(instance.path(QStringLiteral("config/accounts")));
    StorageState state;
    const QUuid id = QUuid::createUuid();
    ASSERT_EQ(catalog.save({{"ID", id.toString()}, {"DisplayName", "A"}, {"Type", 1}}), QString());
    HeldScanner held;
    RepositorySync sync(catalog, state, held.scanner());
    QString error;
    ASSERT_TRUE(sync.start(id, &error));
    // Returns only once the held pass has seen the cancellation.
    sync.stop();
    SUCCEED();
}
