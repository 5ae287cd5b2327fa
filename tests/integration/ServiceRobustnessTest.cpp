// The service survives its clients: broken frames, oversized ones, clients
// that die half-way or never read, and floods of connections cost only the
// offending connection, while another client is being served.

#include "integration/ServiceRawClient.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/Frame.h"
#include "support/Sandbox.h"

#include <QJsonArray>
#include <QtEndian>
#include <gtest/gtest.h>
#include <memory>
#include <vector>

using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
namespace Communication = Orv::Common::Communication;
namespace Format = Communication::Commands::Format;
namespace Header = Format::Header;

namespace {

QByteArray lengthPrefix(quint32 length)
{
    QByteArray header(4, Qt::Uninitialized);
    qToBigEndian<quint32>(length, header.data());
    return header;
}

QJsonObject planListRequest(const QString& id)
{
    return {{QLatin1String(Header::Type::Key), QLatin1String(Header::Type::Request)},
            {QLatin1String(Header::Command), QLatin1String(Format::Plan::GetList::Name)},
            {QLatin1String(Header::Id), id},
            {QLatin1String(Header::Params), QJsonObject()}};
}

bool servesPlanList(ServiceRawClient& client)
{
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    return reply && reply->value(QLatin1String(Header::Status::Key)).toString() ==
                        QLatin1String(Header::Status::Value::Success);
}

} // namespace

TEST(ServiceRobustness, BrokenClientsCostOnlyTheirOwnConnection)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("config/plans/p.xml"),
                      "<Plan ID=\"{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}\" Name=\"P\"/>");
    ASSERT_TRUE(sandbox.startService());
    ServiceRawClient steady(sandbox.socketPath());
    ASSERT_TRUE(servesPlanList(steady));

    // The steady client is half-way through a frame while the others misbehave.
    const QByteArray pending = Communication::encodeFrame(planListRequest(QStringLiteral("late")));
    ASSERT_TRUE(steady.sendBytes(pending.left(7)));

    const QByteArray notJson = "not json at all";
    const QList<QByteArray> fatal = {
        lengthPrefix(static_cast<quint32>(notJson.size())) + notJson,
        lengthPrefix(5) + "[1,2]",
        lengthPrefix(Communication::kMaxFrameSize + 1),
        lengthPrefix(0xffffffffu) + "{}",
    };
    for (const QByteArray& bytes : fatal) {
        SCOPED_TRACE(bytes.toHex().left(40).toStdString());
        ServiceRawClient broken(sandbox.socketPath());
        ASSERT_TRUE(broken.sendBytes(bytes));
        EXPECT_TRUE(broken.waitUntilClosed());
    }

    // Dies in the middle of a frame.
    {
        ServiceRawClient dying(sandbox.socketPath());
        ASSERT_TRUE(dying.sendBytes(lengthPrefix(1000) + "{\"type\":"));
    }
    // Stops in the middle of a frame and stays connected.
    ServiceRawClient stalled(sandbox.socketPath());
    ASSERT_TRUE(stalled.sendBytes(lengthPrefix(1000) + "{\"type\":"));
    // Asks a lot and leaves without reading a single answer.
    {
        ServiceRawClient leaving(sandbox.socketPath());
        QByteArray burst;
        for (int i = 0; i < 200; ++i)
            burst += Communication::encodeFrame(planListRequest(QString::number(i)));
        ASSERT_TRUE(leaving.sendBytes(burst));
    }

    ASSERT_TRUE(steady.sendBytes(pending.mid(7)));
    const auto late = steady.receive();
    ASSERT_TRUE(late);
    EXPECT_EQ(late->value(QLatin1String(Header::Id)).toString(), QStringLiteral("late"));
    EXPECT_EQ(late->value(QLatin1String(Header::Data))
                  .toObject()
                  .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                  .toArray()
                  .size(),
              1);

    EXPECT_TRUE(servesPlanList(steady));
    ServiceRawClient newcomer(sandbox.socketPath());
    EXPECT_TRUE(servesPlanList(newcomer));
    EXPECT_EQ(sandbox.stopService(), 0);
    EXPECT_TRUE(sandbox.readFile(QStringLiteral("logs/orvd.log")).contains("not a JSON object"));
}

TEST(ServiceRobustness, ManyConnectionsAtOnceAreAllServed)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    std::vector<std::unique_ptr<ServiceRawClient>> clients;
    for (int i = 0; i < 200; ++i) {
        clients.push_back(std::make_unique<ServiceRawClient>(sandbox.socketPath()));
        ASSERT_TRUE(clients.back()->isConnected()) << i;
        ASSERT_TRUE(clients.back()->send(planListRequest(QString::number(i))));
    }
    for (int i = 0; i < 200; ++i) {
        const auto reply = clients[static_cast<size_t>(i)]->receive();
        ASSERT_TRUE(reply) << i;
        EXPECT_EQ(reply->value(QLatin1String(Header::Id)).toString(), QString::number(i));
    }
    clients.clear();
    ServiceRawClient last(sandbox.socketPath());
    EXPECT_TRUE(servesPlanList(last));
    EXPECT_EQ(sandbox.stopService(), 0);
}
