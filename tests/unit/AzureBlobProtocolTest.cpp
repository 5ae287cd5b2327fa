#include "kelCloud/AzureBlobBackend.h"
#include "kelCloud/AzureCloud.h"
#include "kelCloud/AzureSharedKey.h"
#include "kelCloud/AzureXml.h"
#include "kelCloud/Config.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Kel::Cloud;

namespace {

const QByteArray Key = "a2V5LWJ5dGVzLWZvci10ZXN0cw==";

QVariantMap azure(const QString& type, const QString& endpoint = {}, const QString& ssl = {})
{
    QVariantMap config{{QLatin1String(Config::Type), QStringLiteral("AzureBlob")},
                       {QLatin1String(Config::AccountName), QStringLiteral("myaccount")},
                       {QLatin1String(Config::SharedKey), QString::fromLatin1(Key)},
                       {QLatin1String(Config::Container), QStringLiteral("backups")}};
    if (!type.isNull())
        config.insert(QLatin1String(Config::AzureType), type);
    if (!endpoint.isEmpty())
        config.insert(QLatin1String(Config::Endpoint), endpoint);
    if (!ssl.isEmpty())
        config.insert(QLatin1String(Config::UseSsl), ssl);
    return config;
}

QByteArray urlOf(const QVariantMap& config, const QString& name)
{
    Status status;
    auto backend = Backend::create(config, &status);
    EXPECT_TRUE(backend) << status.message.toStdString();
    return backend ? static_cast<AzureBlobBackend*>(backend.get())->urlOf(name) : QByteArray();
}

Operation::Error refusal(const QVariantMap& config)
{
    Status status;
    EXPECT_FALSE(Backend::create(config, &status));
    return status.error;
}

} // namespace

TEST(AzureSharedKey, StringToSignFollowsTheDocumentedLayout)
{
    // The container metadata request of the Shared Key documentation: twelve
    // standard lines, the x-ms- headers, then the resource with its
    // parameters sorted.
    const QByteArray text = AzureSharedKey::stringToSign(
        "GET", {{"x-ms-version", "2009-09-19"}, {"x-ms-date", "Sun, 11 Oct 2009 21:49:13 GMT"}},
        QStringLiteral("myaccount"), "/mycontainer",
        {{QStringLiteral("restype"), QStringLiteral("container")},
         {QStringLiteral("comp"), QStringLiteral("metadata")},
         {QStringLiteral("timeout"), QStringLiteral("20")}});
    EXPECT_EQ(text, "GET\n\n\n\n\n\n\n\n\n\n\n\n"
                    "x-ms-date:Sun, 11 Oct 2009 21:49:13 GMT\nx-ms-version:2009-09-19\n"
                    "/myaccount/mycontainer\ncomp:metadata\nrestype:container\ntimeout:20");
}

TEST(AzureSharedKey, StandardHeadersCanonicalHeadersAndParameters)
{
    const QByteArray text = AzureSharedKey::stringToSign(
        "PUT",
        {{"Content-Type", "application/xml"},
         {"Content-Length", "0"},
         {"X-MS-Meta-Two", "  a   b  "},
         {"x-ms-blob-type", "BlockBlob"},
         {"If-Match", "\"etag\""},
         {"x-ms-range", "bytes=0-9"},
         {"Authorization", "not signed"}},
        QStringLiteral("devstoreaccount1"), "/devstoreaccount1/c/a%20b",
        {{QStringLiteral("Comp"), QStringLiteral("block")},
         {QStringLiteral("blockid"), QStringLiteral("b3J2LWJsb2NrLTAwMDAwMA==")}});
    // A zero length is signed as none; names of x-ms- headers in lower case,
    // sorted, their blanks folded; the emulator's account appears twice.
    EXPECT_EQ(text, "PUT\n\n\n\n\napplication/xml\n\n\n\"etag\"\n\n\n\n"
                    "x-ms-blob-type:BlockBlob\nx-ms-meta-two:a b\nx-ms-range:bytes=0-9\n"
                    "/devstoreaccount1/devstoreaccount1/c/a%20b\n"
                    "blockid:b3J2LWJsb2NrLTAwMDAwMA==\ncomp:block");
    // The account listing signs the root path.
    EXPECT_TRUE(AzureSharedKey::stringToSign("GET", {}, QStringLiteral("a"), {},
                                             {{QStringLiteral("comp"), QStringLiteral("list")}})
                    .endsWith("\n/a/\ncomp:list"));
}

TEST(AzureSharedKey, AuthorizationNeedsABase64Key)
{
    const QByteArray header = AzureSharedKey::authorization(QStringLiteral("acct"), Key, "text");
    EXPECT_TRUE(header.startsWith("SharedKey acct:"));
    EXPECT_EQ(QByteArray::fromBase64(header.mid(15)).size(), 32);
    EXPECT_TRUE(
        AzureSharedKey::authorization(QStringLiteral("acct"), "not base64!", "t").isEmpty());
}

TEST(AzureCloud, TypesAndTheirAddresses)
{
    EXPECT_EQ(AzureCloud::names(), QStringList({"Global", "China", "Government", "Custom"}));
    EXPECT_EQ(AzureCloud::defaultCloud().name, QStringLiteral("Global"));
    EXPECT_EQ(AzureCloud::find(QStringLiteral("global")), nullptr);
    EXPECT_TRUE(AzureCloud::find(QStringLiteral("Custom"))->needsEndpoint());

    EXPECT_EQ(urlOf(azure({}), QStringLiteral("a/b c")),
              "https://myaccount.blob.core.windows.net/backups/a/b%20c");
    EXPECT_EQ(urlOf(azure(QStringLiteral("China")), QStringLiteral("x")),
              "https://myaccount.blob.core.chinacloudapi.cn/backups/x");
    EXPECT_EQ(urlOf(azure(QStringLiteral("Government"), {}, QStringLiteral("false")),
                    QStringLiteral("x")),
              "http://myaccount.blob.core.usgovcloudapi.net/backups/x");
    // An emulator's address takes the account as the first part of the path;
    // other custom endpoints are the account's service as written.
    EXPECT_EQ(urlOf(azure(QStringLiteral("Custom"), QStringLiteral("http://127.0.0.1:10000")),
                    QStringLiteral("x")),
              "http://127.0.0.1:10000/myaccount/backups/x");
    EXPECT_EQ(urlOf(azure(QStringLiteral("Custom"), QStringLiteral("localhost:10000"),
                          QStringLiteral("false")),
                    QStringLiteral("x")),
              "http://localhost:10000/myaccount/backups/x");
    EXPECT_EQ(urlOf(azure(QStringLiteral("Custom"), QStringLiteral("store.example.net")),
                    QStringLiteral("x")),
              "https://store.example.net/backups/x");
    EXPECT_EQ(urlOf(azure(QStringLiteral("Custom"), QStringLiteral("https://gw.example.net/acc/")),
                    QStringLiteral("x")),
              "https://gw.example.net/acc/backups/x");
}

TEST(AzureCloud, UnusableConfigurationsAreRefusedBeforeAnyRequest)
{
    EXPECT_EQ(refusal(azure(QStringLiteral("Mars"))), Operation::Error::InvalidConfiguration);
    EXPECT_EQ(refusal(azure(QStringLiteral("Custom"))), Operation::Error::InvalidConfiguration);
    EXPECT_EQ(refusal(azure(QStringLiteral("Custom"), QStringLiteral("ftp://host"))),
              Operation::Error::InvalidConfiguration);
    QVariantMap config = azure({});
    config.insert(QLatin1String(Config::SharedKey), QStringLiteral("not a key!"));
    EXPECT_EQ(refusal(config), Operation::Error::InvalidConfiguration);
    config = azure({});
    config.remove(QLatin1String(Config::AccountName));
    EXPECT_EQ(refusal(config), Operation::Error::InvalidConfiguration);
    config = azure({});
    config.insert(QLatin1String(Config::PartSize), QStringLiteral("1000"));
    EXPECT_EQ(refusal(config), Operation::Error::InvalidConfiguration);
}

TEST(AzureXml, ListingsErrorsAndBlockLists)
{
    AzureXml::Page page;
    ASSERT_TRUE(AzureXml::parseBlobs(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><EnumerationResults "
        "ServiceEndpoint=\"http://x/\" ContainerName=\"c\"><Prefix>a/</Prefix><Blobs>"
        "<Blob><Name>a/one</Name><Properties><Last-Modified>Mon, 27 Jan 2020 10:11:12 "
        "GMT</Last-Modified><Content-Length>12</Content-Length></Properties><Metadata /></Blob>"
        "<Blob><Name>a/two</Name><Properties><Content-Length>0</Content-Length></Properties>"
        "</Blob></Blobs><NextMarker>2!8!YS90d28-</NextMarker></EnumerationResults>",
        &page));
    ASSERT_EQ(page.entries.size(), 2);
    EXPECT_EQ(page.entries[0].name, QStringLiteral("a/one"));
    EXPECT_EQ(page.entries[0].size, 12);
    EXPECT_EQ(page.entries[0].modified, QDateTime(QDate(2020, 1, 27), QTime(10, 11, 12), Qt::UTC));
    EXPECT_EQ(page.entries[1].size, 0);
    EXPECT_EQ(page.nextMarker, QStringLiteral("2!8!YS90d28-"));

    ASSERT_TRUE(AzureXml::parseContainers(
        "<EnumerationResults><Containers><Container><Name>c1</Name></Container></Containers>"
        "<NextMarker /></EnumerationResults>",
        &page));
    ASSERT_EQ(page.entries.size(), 1);
    EXPECT_EQ(page.entries[0].size, -1);
    EXPECT_TRUE(page.nextMarker.isEmpty());
    EXPECT_FALSE(AzureXml::parseBlobs("<Error/>", &page));

    AzureXml::Error error;
    ASSERT_TRUE(AzureXml::parseError(
        "<?xml version=\"1.0\" encoding=\"utf-8\"?><Error><Code>AuthenticationFailed</Code>"
        "<Message>Server failed to authenticate the request.\nRequestId:1\nTime:2</Message>"
        "<AuthenticationErrorDetail>The MAC signature found in the HTTP request is not the "
        "same as any computed signature.</AuthenticationErrorDetail></Error>",
        &error));
    EXPECT_EQ(error.code, QStringLiteral("AuthenticationFailed"));
    EXPECT_EQ(error.message, QStringLiteral("Server failed to authenticate the request. The MAC "
                                            "signature found in the HTTP request is not the same "
                                            "as any computed signature."));
    EXPECT_FALSE(AzureXml::parseError("", &error));

    EXPECT_EQ(AzureXml::blockList({"QQ==", "Qg=="}),
              "<?xml version=\"1.0\" encoding=\"UTF-8\"?>"
              "<BlockList><Latest>QQ==</Latest><Latest>Qg==</Latest></BlockList>\n");
}
