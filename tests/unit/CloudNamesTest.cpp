#include "kelCloud/FolderNames.h"
#include "kelCloud/ObjectName.h"
#include "kelNetwork/Endpoint.h"
#include "support/QtPrinters.h"

#include <gtest/gtest.h>

using namespace Kel::Cloud;
using Kel::Network::Endpoint;

TEST(ObjectName, AcceptsRelativeNamesAndRefusesEscapes)
{
    for (const char* good : {"a", "a/b/c", "pack 1.bin", "x/.hidden", "é/ü", "a..b"})
        EXPECT_TRUE(ObjectName::check(QString::fromUtf8(good)).ok()) << good;
    for (const char* bad : {"", "/a", "a/", "a//b", "../a", "a/../b", "./a", "a/.", ".orv-probe-1",
                            "x/.orv-part-2"}) {
        const Status status = ObjectName::check(QString::fromUtf8(bad));
        EXPECT_EQ(status.error, Operation::Error::InvalidConfiguration) << bad;
        EXPECT_FALSE(status.message.isEmpty());
    }
    EXPECT_FALSE(ObjectName::check(QString(1025, QLatin1Char('a'))).ok());
    EXPECT_FALSE(ObjectName::check(QStringLiteral("a") + QChar(0) + QStringLiteral("b")).ok());
    // Prefixes may end in "/" and may be empty, nothing more.
    for (const char* prefix : {"", "a/", "a/b", "a/b/"})
        EXPECT_TRUE(ObjectName::checkPrefix(QString::fromLatin1(prefix)).ok()) << prefix;
    for (const char* prefix : {"/", "/a", "a//", "../"})
        EXPECT_FALSE(ObjectName::checkPrefix(QString::fromLatin1(prefix)).ok()) << prefix;
    EXPECT_NE(ObjectName::reserved(QStringLiteral("probe")),
              ObjectName::reserved(QStringLiteral("probe")));
    EXPECT_FALSE(ObjectName::isListed(ObjectName::reserved(QStringLiteral("probe"))));
}

TEST(FolderNames, SiblingsKeepTheContainersForm)
{
    struct Case
    {
        const char* container;
        const char* parent;
        const char* sibling;
    };
    for (const Case& c :
         {Case{"/srv/backups", "/srv/", "/srv/other"},
          Case{"/srv/backups/", "/srv/", "/srv/other/"}, Case{"backups", "", "other"},
          Case{"home/backups", "home/", "home/other"}, Case{"/top", "/", "/other"}}) {
        const QString container = QString::fromLatin1(c.container);
        EXPECT_EQ(FolderNames::parentOf(container), QString::fromLatin1(c.parent)) << c.container;
        EXPECT_EQ(FolderNames::sibling(container, QStringLiteral("other")),
                  QString::fromLatin1(c.sibling))
            << c.container;
        // The container is found among its siblings as written.
        const QString own = container.section(QLatin1Char('/'), -1, -1, QString::SectionSkipEmpty);
        EXPECT_EQ(FolderNames::sibling(container, own), container) << c.container;
    }
    EXPECT_TRUE(FolderNames::isRoot(QStringLiteral("/")));
    EXPECT_TRUE(FolderNames::isRoot(QStringLiteral("//")));
    EXPECT_FALSE(FolderNames::isRoot(QStringLiteral("/a")));
}

TEST(Endpoint, ParsesTheFormsAdministratorsWrite)
{
    struct Case
    {
        const char* text;
        const char* scheme;
        const char* host;
        int port;
    };
    for (const Case& c :
         {Case{"minio.lan", "", "minio.lan", 0}, Case{" 10.0.0.5:9000 ", "", "10.0.0.5", 9000},
          Case{"https://s3.example.com", "https", "s3.example.com", 0},
          Case{"HTTP://store:81/", "http", "store", 81}, Case{"[::1]:9000", "", "::1", 9000}}) {
        const Endpoint endpoint = Endpoint::parse(QString::fromLatin1(c.text));
        ASSERT_TRUE(endpoint.isValid()) << c.text;
        EXPECT_EQ(endpoint.scheme, QString::fromLatin1(c.scheme)) << c.text;
        EXPECT_EQ(endpoint.host, QString::fromLatin1(c.host)) << c.text;
        EXPECT_EQ(endpoint.port, c.port) << c.text;
    }
    EXPECT_EQ(Endpoint::parse(QStringLiteral("[::1]:9000")).authority(443), "[::1]:9000");
    EXPECT_EQ(Endpoint::parse(QStringLiteral("store")).authority(443), "store:443");
    EXPECT_EQ(Endpoint::parse(QStringLiteral("https://h/p")).path, "/p");
    for (const char* bad : {"", "  ", "a b", "host:port", "user@host", "http://", "h?x=1"})
        EXPECT_FALSE(Endpoint::parse(QString::fromLatin1(bad)).isValid()) << bad;
}
