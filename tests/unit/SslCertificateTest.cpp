#include "kelNetwork/GlobalConfig.h"
#include "kelNetwork/Ssl/Certificate.h"
#include "kelNetwork/Ssl/PeerCertificates.h"
#include "kelNetwork/Ssl/SslCertificateCache.h"
#include "kelNetwork/Ssl/TrustStore.h"
#include "support/QtPrinters.h"
#include "support/TestCertificates.h"

#include <QCryptographicHash>
#include <QFile>
#include <QTcpServer>
#include <QTemporaryDir>
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

namespace {

int storeSize(X509_STORE* store)
{
    return sk_X509_OBJECT_num(X509_STORE_get0_objects(store));
}

bool writeText(const QString& path, const QByteArray& text)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(text) == text.size();
}

} // namespace

TEST(TrustStore, IsSharedUntilOneOfItsSourcesChanges)
{
    using Kel::Network::GlobalConfig;
    using Kel::Network::Ssl::TrustStore;
    SslCertificateCache::instance()->update({});
    X509_STORE* first = TrustStore::acquire();
    X509_STORE* again = TrustStore::acquire();
    EXPECT_EQ(first, again);
    // The system's anchors are in it (the machine has a CA bundle).
    const int anchors = storeSize(first);
    EXPECT_GT(anchors, 10);
    X509_STORE_free(again);

    const TestCertificates one = TestCertificates::make(QStringLiteral("one"));
    SslCertificateCache::instance()->update({one.serverPem});
    X509_STORE* cached = TrustStore::acquire();
    EXPECT_NE(cached, first);
    EXPECT_EQ(storeSize(cached), anchors + 1);
    // A store still in use stays valid after it was replaced.
    EXPECT_EQ(storeSize(first), anchors);
    X509_STORE_free(first);

    QTemporaryDir dir;
    const QString bundle = dir.filePath(QStringLiteral("bundle.pem"));
    const QString trusted = dir.filePath(QStringLiteral("trusted.pem"));
    ASSERT_TRUE(writeText(bundle, one.caPem));
    ASSERT_TRUE(writeText(trusted, one.chainPem()));
    GlobalConfig::instance()->setCaInfoPath(bundle);
    GlobalConfig::instance()->setTrustedCertificatesPath(trusted);
    X509_STORE* own = TrustStore::acquire();
    // The named bundle instead of the system's, the trusted file and the cache;
    // a certificate met twice is held once.
    EXPECT_EQ(storeSize(own), 2);
    ASSERT_TRUE(
        writeText(trusted, TestCertificates::make(QStringLiteral("two")).serverPem + one.caPem));
    X509_STORE* changed = TrustStore::acquire();
    EXPECT_NE(changed, own);
    EXPECT_EQ(storeSize(changed), 3);

    GlobalConfig::instance()->setCaInfoPath({});
    GlobalConfig::instance()->setTrustedCertificatesPath({});
    SslCertificateCache::instance()->update({});
    for (X509_STORE* store : {cached, own, changed})
        X509_STORE_free(store);
}
