// Azure accounts through the command line and the service, against the
// Azure emulator on loopback: nothing is saved unless the emulator accepted
// the account's key and knows its container.

#include "integration/AccountRuns.h"
#include "support/AzuritePeer.h"

#include <QJsonObject>
#include <gtest/gtest.h>

using OrvTest::AzuritePeer;
using OrvTest::Sandbox;

using namespace OrvTest::Accounts;

namespace {

QStringList azureAdd(const AzuritePeer& peer, const QString& name, const QString& container,
                     const QString& key = QLatin1String(AzuritePeer::Key))
{
    return {QStringLiteral("account"),
            QStringLiteral("add"),
            QStringLiteral("azure"),
            QStringLiteral("--name"),
            name,
            QStringLiteral("-t"),
            QStringLiteral("Custom"),
            QStringLiteral("-e"),
            peer.endpoint(),
            QStringLiteral("-a"),
            QLatin1String(AzuritePeer::Account),
            QStringLiteral("-s"),
            key,
            QStringLiteral("-c"),
            container};
}

} // namespace

TEST(AccountAzure, TheEmulatorChecksTheKeyAndTheContainerBeforeTheAccountIsSaved)
{
    AzuritePeer peer({QStringLiteral("orv-test"), QStringLiteral("orv-other")});
    QString error;
    ASSERT_TRUE(peer.start(&error)) << error.toStdString();
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());

    expectRun(sandbox.run(azureAdd(peer, QStringLiteral("Blobs"), QStringLiteral("orv-test"))),
              kSuccess);
    const auto refused =
        sandbox.run(azureAdd(peer, QStringLiteral("Bad key"), QStringLiteral("orv-test"),
                             QString::fromLatin1(QByteArray(64, 'k').toBase64())));
    EXPECT_EQ(refused.exitCode, 255);
    EXPECT_TRUE(
        refused.out.startsWith(kBanner + "Check cloud config operation finished with error: "))
        << refused.out.constData();
    EXPECT_TRUE(refused.out.contains("Authori") || refused.out.contains("Authenticat"))
        << refused.out.constData();
    expectRun(sandbox.run(azureAdd(peer, QStringLiteral("Lost"), QStringLiteral("orv-none"))),
              "The specified container does not exist.\n\n", 255);
    ASSERT_EQ(records(sandbox).size(), 1);

    const QJsonObject shown = record(sandbox, QStringLiteral("Blobs"));
    EXPECT_EQ(shown.value(QStringLiteral("Type")).toInt(), 3);
    EXPECT_EQ(shown.value(QStringLiteral("Path")).toString(), QStringLiteral("orv-test"));
    const QJsonObject details = shown.value(QStringLiteral("DetailParams")).toObject();
    EXPECT_EQ(details.value(QStringLiteral("SharedKey")).toString(), QStringLiteral("****"));
    EXPECT_EQ(details.value(QStringLiteral("AzureType")).toString(), QStringLiteral("Custom"));

    // An edit checks again with the stored key.
    const QStringList edit{QStringLiteral("account"), QStringLiteral("edit"),
                           QStringLiteral("--name"), QStringLiteral("Blobs"), QStringLiteral("-c")};
    expectRun(sandbox.run(edit + QStringList{QStringLiteral("orv-other")}), kSuccess);
    expectRun(sandbox.run(edit + QStringList{QStringLiteral("gone")}),
              "The specified container does not exist.\n\n", 255);
    EXPECT_EQ(record(sandbox, QStringLiteral("Blobs")).value(QStringLiteral("Path")),
              QStringLiteral("orv-other"));
    EXPECT_EQ(sandbox.stopService(), 0);
}
