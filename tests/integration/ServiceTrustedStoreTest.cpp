// The service's trusted-certificate store as its named commands, and the
// fetch of a server's certificate chain, against an https S3 server.

#include "integration/AccountRuns.h"
#include "support/S3Peer.h"
#include "support/Sandbox.h"

#include <QJsonArray>
#include <gtest/gtest.h>

using OrvTest::S3Peer;
using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
using OrvTest::Accounts::closedPort;

namespace {

QJsonObject data(const std::optional<QJsonObject>& reply)
{
    return reply ? reply->value(QStringLiteral("data")).toObject() : QJsonObject();
}

} // namespace

TEST(ServiceTrustedStore, CommandsChangeTheFileAndTellTheSubscribers)
{
    S3Peer peer(true);
    QString error;
    ASSERT_TRUE(peer.start(&error)) << error.toStdString();
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient listener(sandbox.socketPath());
    ServiceRawClient client(sandbox.socketPath());
    ASSERT_TRUE(listener.send({{"type", "subscribe"}}));
    ASSERT_TRUE(listener.call(QStringLiteral("ReadFromSslStorage")));

    const auto certificates = [&] {
        return data(client.call(QStringLiteral("ReadFromSslStorage")))
            .value(QStringLiteral("certificates"))
            .toArray();
    };
    EXPECT_EQ(certificates(), QJsonArray());

    const QJsonObject fetched = data(client.call(QStringLiteral("GetPeerSslCertificate"),
                                                 {{"endpoint", "https://" + peer.endpoint()}}));
    EXPECT_EQ(fetched.value(QStringLiteral("pem")).toString().toLatin1(),
              peer.certificates().chainPem());
    const auto away = client.call(QStringLiteral("GetPeerSslCertificate"),
                                  {{"endpoint", QStringLiteral("127.0.0.1:%1").arg(closedPort())}});
    ASSERT_TRUE(away);
    EXPECT_EQ(away->value(QStringLiteral("status")).toString(), QStringLiteral("error"));

    const auto appended =
        client.call(QStringLiteral("AppendToSslStorage"),
                    {{"pem", QString::fromLatin1(peer.certificates().chainPem())}});
    ASSERT_TRUE(appended);
    EXPECT_EQ(data(appended).value(QStringLiteral("success")), true);
    EXPECT_EQ(certificates().size(), 2);
    const auto pushed = listener.receive();
    ASSERT_TRUE(pushed);
    const QJsonObject change = pushed->value(QStringLiteral("data")).toObject();
    EXPECT_EQ(QUuid(change.value(QStringLiteral("notification_type")).toString()),
              QUuid(QStringLiteral("{37cdd3dc-b98b-44ab-96f0-44fc10bb5150}")));
    EXPECT_EQ(change.value(QStringLiteral("message"))
                  .toObject()
                  .value(QStringLiteral("pem"))
                  .toString()
                  .toLatin1(),
              peer.certificates().chainPem());

    client.call(QStringLiteral("RemoveFromSslStorage"),
                {{"pem", QString::fromLatin1(peer.certificates().caPem)}});
    EXPECT_EQ(certificates(), QJsonArray{QString::fromLatin1(peer.certificates().serverPem)});
    const auto refused =
        client.call(QStringLiteral("WriteToSslStorage"), {{"pem", "not a certificate"}});
    EXPECT_EQ(refused->value(QStringLiteral("status")).toString(), QStringLiteral("error"));
    client.call(QStringLiteral("WriteToSslStorage"), {{"pem", ""}});
    EXPECT_EQ(certificates(), QJsonArray());
    EXPECT_EQ(sandbox.readFile(QStringLiteral("config/trustedCertificates.pem")), QByteArray());
    // One notification per change, none for the refused one.
    for (int i = 0; i < 2; ++i)
        EXPECT_TRUE(listener.receive(5000)) << i;
    EXPECT_FALSE(listener.receive(300));
    EXPECT_EQ(sandbox.stopService(), 0);
}
