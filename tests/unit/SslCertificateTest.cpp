#include "kelNetwork/Ssl/Certificate.h"
#include "kelNetwork/Ssl/PeerCertificates.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"
#include "support/QtPrinters.h"
#include "support/TestCertificates.h"

#include <QCryptographicHash>
#include <QTcpServer>
#include <gtest/gtest.h>
#include <openssl/obj_mac.h>
#include <openssl/x509_vfy.h>

using Kel::Network::Ssl::Certificate;
using Kel::Network::Ssl::SslCertificateCache;
using OrvTest::TestCertificates;

TEST(SslCertificate, ReadsNamesDatesAndFingerprints)
{
    const TestCertificates made = TestCertificates::make(QStringLiteral("store.example"));
    const Certificate certificate(made.serverPem);
    ASSERT_FALSE(certificate.isNull());
    EXPECT_EQ(certificate.subjectName(NID_commonName), "store.example");
    EXPECT_EQ(certificate.subjectName(NID_organizationName), "Orv Test Storage");
    EXPECT_EQ(certificate.subjectName(NID_organizationalUnitName), "Storage tests");
    EXPECT_EQ(certificate.issuerName(NID_commonName), "Orv Test Authority");
    EXPECT_EQ(certificate.subjectName(NID_pkcs9_emailAddress), QString());

    const QDateTime now = QDateTime::currentDateTimeUtc();
    EXPECT_EQ(certificate.validFrom().timeSpec(), Qt::UTC);
    EXPECT_LE(certificate.validFrom(), now);
    EXPECT_GT(certificate.expiresOn(), now);
    EXPECT_EQ(certificate.validFrom().secsTo(certificate.expiresOn()), 24 * 3600 + 60);

    const QByteArray der = certificate.to(Certificate::Der);
    EXPECT_EQ(certificate.fingerprint(Certificate::Sha256),
              QCryptographicHash::hash(der, QCryptographicHash::Sha256));
    EXPECT_EQ(certificate.fingerprint(Certificate::Sha1),
              QCryptographicHash::hash(der, QCryptographicHash::Sha1));
    EXPECT_EQ(certificate.fingerprint(Certificate::Md5),
              QCryptographicHash::hash(der, QCryptographicHash::Md5));

    // Both forms read back to the same certificate.
    EXPECT_EQ(Certificate(der, Certificate::Der), certificate);
    EXPECT_EQ(certificate.to(Certificate::Pem), made.serverPem);
    EXPECT_NE(Certificate(made.caPem), certificate);
}

TEST(SslCertificate, NothingToReadGivesNull)
{
    for (const QByteArray& junk : {QByteArray(), QByteArray("hello"),
                                   QByteArray("-----BEGIN CERTIFICATE-----\nAAAA\n"
                                              "-----END CERTIFICATE-----\n")}) {
        Certificate certificate;
        EXPECT_FALSE(certificate.read(junk));
        EXPECT_TRUE(certificate.isNull());
        EXPECT_TRUE(certificate.to().isEmpty());
        EXPECT_TRUE(certificate.subjectName(NID_commonName).isEmpty());
        EXPECT_FALSE(certificate.expiresOn().isValid());
        EXPECT_TRUE(certificate.fingerprint(Certificate::Sha1).isEmpty());
    }
    EXPECT_TRUE(Certificate::readAll("no certificates here").isEmpty());
}

TEST(SslCertificate, ReadAllKeepsTheOrderAndSkipsTextBetween)
{
    const TestCertificates one = TestCertificates::make(QStringLiteral("one"));
    const TestCertificates two = TestCertificates::make(QStringLiteral("two"));
    const QByteArray text =
        "leading words\n" + one.serverPem + "between\n" + one.caPem + two.serverPem + "\ntrailing";
    const QList<Certificate> all = Certificate::readAll(text);
    ASSERT_EQ(all.size(), 3);
    EXPECT_EQ(all.at(0).subjectName(NID_commonName), "one");
    EXPECT_EQ(all.at(1).subjectName(NID_commonName), "Orv Test Authority");
    EXPECT_EQ(all.at(2).subjectName(NID_commonName), "two");
}

TEST(SslCertificateCache, UpdateReplacesTheWholeSetAndDropsEntriesWithoutCertificates)
{
    SslCertificateCache* cache = SslCertificateCache::instance();
    const TestCertificates one = TestCertificates::make(QStringLiteral("one"));
    const TestCertificates two = TestCertificates::make(QStringLiteral("two"));

    cache->update({one.chainPem(), "not a certificate"});
    EXPECT_EQ(cache->pems(), QSet<QByteArray>{one.chainPem()});
    ASSERT_EQ(cache->certificates().size(), 2);

    cache->update({two.serverPem});
    ASSERT_EQ(cache->certificates().size(), 1);
    EXPECT_EQ(cache->certificates().first().subjectName(NID_commonName), "two");

    X509_STORE* store = X509_STORE_new();
    EXPECT_EQ(cache->addTo(store), 1);
    X509_STORE_free(store);

    cache->update({});
    EXPECT_TRUE(cache->isEmpty());
    EXPECT_TRUE(cache->pems().isEmpty());
}

TEST(PeerCertificates, NoServerGivesTheReasonAndNothingElse)
{
    QTcpServer holder;
    ASSERT_TRUE(holder.listen(QHostAddress::LocalHost, 0));
    const quint16 port = holder.serverPort();
    holder.close();
    QString error;
    EXPECT_TRUE(
        Kel::Network::Ssl::fetchPeerCertificates(QStringLiteral("127.0.0.1:%1").arg(port), &error)
            .isEmpty());
    EXPECT_FALSE(error.isEmpty());
    error.clear();
    EXPECT_TRUE(
        Kel::Network::Ssl::fetchPeerCertificates(QStringLiteral("not a host"), &error).isEmpty());
    EXPECT_TRUE(error.contains(QStringLiteral("not an endpoint"))) << error.toStdString();
}
