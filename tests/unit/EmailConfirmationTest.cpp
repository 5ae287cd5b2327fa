#include "LoopbackHttpsServer.h"
#include "TemporaryInstance.h"
#include "kelNetwork/HttpClient.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/EmailAddressesConfirmed.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

using Kel::Network::HttpClient;
using Orv::Common::EmailAddressesConfirmed;

namespace {

// Points the instance's confirmation service at url; certificate checks are
// left on unless trustAnything.
void useService(const TemporaryInstance& instance, const QString& url, bool trustAnything)
{
    instance.writeFile(QStringLiteral("config/branding.conf"),
                       "[General]\nEmailConfirmationUrl=" + url.toUtf8() + "\n");
    TemporaryInstance::reloadAll();
    if (trustAnything) {
        ASSERT_TRUE(Orv::DefaultSettings::instance()->setIgnoreSSL(QStringLiteral("true")));
    }
}

QJsonObject requestBody(const QByteArray& request)
{
    return QJsonDocument::fromJson(request.mid(request.indexOf("\r\n\r\n") + 4)).object();
}

} // namespace

TEST(EmailConfirmation, AnswersOfTheServiceAreTakenAsTheyCome)
{
    struct Case
    {
        int status;
        QByteArray body;
        bool allowed;
        int reported;
    };
    const Case cases[] = {
        {200, "{\"allowed\": true}", true, 200},
        {200, "{\"allowed\": false}", false, 200},
        // Anything but a well-formed answer is no answer.
        {200, "{\"allowed\": \"yes\"}", false, 0},
        {200, "<html>", false, 0},
        {503, "{\"allowed\": true}", false, 503},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.body.toStdString());
        TemporaryInstance instance;
        LoopbackHttpsServer server(c.status, c.body);
        useService(instance, server.url(), true);
        EmailAddressesConfirmed service;
        EXPECT_EQ(
            service.isAllowed(QStringLiteral("Ann"), QStringLiteral("a@example.com;b@example.org")),
            c.allowed);
        EXPECT_EQ(service.responseStatus(), c.reported);

        const QByteArray request = server.lastRequest();
        EXPECT_TRUE(request.startsWith("POST /confirm HTTP/1.1\r\n")) << request.constData();
        const QJsonObject body = requestBody(request);
        EXPECT_EQ(body.value(QStringLiteral("user_name")).toString(), QStringLiteral("Ann"));
        EXPECT_EQ(body.value(QStringLiteral("emails")).toArray(),
                  QJsonArray({QStringLiteral("a@example.com"), QStringLiteral("b@example.org")}));
    }
}

TEST(EmailConfirmation, UnreachableOrUntrustedServiceGivesNoStatus)
{
    TemporaryInstance instance;
    useService(
        instance,
        QStringLiteral("https://127.0.0.1:%1/confirm").arg(LoopbackHttpsServer::closedPort()),
        true);
    EmailAddressesConfirmed closed;
    EXPECT_FALSE(closed.isAllowed(QString(), QStringLiteral("a@example.com")));
    EXPECT_EQ(closed.responseStatus(), 0);
    EXPECT_FALSE(closed.errorString().isEmpty());

    // Certificates are checked unless the administrator chose to ignore them.
    TemporaryInstance strict;
    LoopbackHttpsServer server(200, "{\"allowed\": true}");
    useService(strict, server.url(), false);
    EmailAddressesConfirmed untrusted;
    EXPECT_FALSE(untrusted.isAllowed(QString(), QStringLiteral("a@example.com")));
    EXPECT_EQ(untrusted.responseStatus(), 0);
    EXPECT_TRUE(server.lastRequest().isEmpty());
}

TEST(HttpClient, TrustsAnExtraAuthorityAndCapsTheBody)
{
    LoopbackHttpsServer server(200, "{\"allowed\": true}");
    HttpClient::Request request;
    request.url = server.url();
    request.caFile = server.caFile();
    const HttpClient::Response trusted = HttpClient::send(request);
    EXPECT_EQ(trusted.status, 200) << trusted.error.toStdString();
    EXPECT_EQ(trusted.body, QByteArray("{\"allowed\": true}"));

    LoopbackHttpsServer flood(200, QByteArray(HttpClient::maxBodySize + 1, 'x'));
    request.url = flood.url();
    request.caFile = flood.caFile();
    const HttpClient::Response capped = HttpClient::send(request);
    EXPECT_EQ(capped.status, 0);
    EXPECT_TRUE(capped.body.isEmpty());

    request.url = QStringLiteral("file:///etc/passwd");
    EXPECT_EQ(HttpClient::send(request).status, 0) << "only http and https are spoken";
}
