#pragma once

#include "integration/ServiceRawClient.h"
#include "support/Sandbox.h"

#include <QJsonArray>
#include <QTcpServer>
#include <gtest/gtest.h>

// What the account tests share: runs of orvV2 checked against their whole
// output, and the records the service reports.
namespace OrvTest::Accounts {

inline const QByteArray kBanner = "Orv Backup Command Line Interface started\n\n";
inline const QByteArray kSuccess = "\nSuccess.\n";

// The words of line, then tail (for words with blanks or made at run time).
inline RunResult run(Sandbox& sandbox, const QString& line, const QStringList& tail = {},
                     const QByteArray& input = {})
{
    return sandbox.run(line.split(QLatin1Char(' '), Qt::SkipEmptyParts) + tail, input);
}

inline void expectRun(const RunResult& result, const QByteArray& out, int exitCode = 0)
{
    EXPECT_EQ(result.exitCode, exitCode);
    EXPECT_EQ(result.out, kBanner + out);
    EXPECT_EQ(result.err, QByteArray());
}

inline QJsonArray records(Sandbox& sandbox)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QStringLiteral("StorageGetConnection"));
    return reply ? reply->value(QStringLiteral("data"))
                       .toObject()
                       .value(QStringLiteral("storageConnection"))
                       .toArray()
                 : QJsonArray();
}

inline QJsonObject record(Sandbox& sandbox, const QString& name)
{
    const QJsonArray all = records(sandbox);
    for (const QJsonValue& value : all)
        if (value.toObject().value(QStringLiteral("DisplayName")).toString() == name)
            return value.toObject();
    return {};
}

// A loopback port nothing listens on.
inline int closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

} // namespace OrvTest::Accounts
