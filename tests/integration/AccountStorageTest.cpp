// Cloud accounts against real servers on loopback: an S3-compatible server
// (over http and https) and OpenSSH's sshd. Nothing is saved unless the
// storage accepted the configuration.

#include "integration/AccountRuns.h"
#include "kelCloud/Backend.h"
#include "support/S3Peer.h"
#include "support/SftpPeer.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QLocale>
#include <QSslCertificate>
#include <QThread>
#include <gtest/gtest.h>

using OrvTest::RunResult;
using OrvTest::S3Peer;
using OrvTest::Sandbox;
using OrvTest::ServiceRawClient;
using OrvTest::SftpPeer;

using namespace OrvTest::Accounts;

namespace {

const QByteArray kCheckFailed = "Check cloud config operation finished with error: ";

void expectFailure(const RunResult& result, const QByteArray& start)
{
    EXPECT_EQ(result.exitCode, 255);
    EXPECT_TRUE(result.out.startsWith(kBanner + start)) << result.out.constData();
}

// The words that add an account of the peer; later options in extra win.
QStringList s3Add(const S3Peer& peer, const QString& name, const QString& bucket,
                  const QStringList& extra = {})
{
    const QString scheme = peer.https() ? QStringLiteral("https://") : QString();
    return QStringList{QStringLiteral("account"),
                       QStringLiteral("add"),
                       QStringLiteral("s3compatible"),
                       QStringLiteral("--name"),
                       name,
                       QStringLiteral("-e"),
                       scheme + peer.endpoint(),
                       QStringLiteral("-a"),
                       QLatin1String(S3Peer::AccessKey),
                       QStringLiteral("-s"),
                       QLatin1String(S3Peer::SecretKey),
                       QStringLiteral("-b"),
                       bucket,
                       QStringLiteral("--ssl"),
                       QVariant(peer.https()).toString()} +
           extra;
}

QJsonObject storedFile(Sandbox& sandbox, const QString& name)
{
    const QString id = record(sandbox, name).value(QStringLiteral("ID")).toString();
    return QJsonDocument::fromJson(sandbox.readFile(QStringLiteral("config/accounts/") +
                                                    QUuid(id).toString(QUuid::WithoutBraces) +
                                                    QStringLiteral(".json")))
        .object();
}

// Everything the programs wrote for the administrator or the logs.
QByteArray allLogs(const Sandbox& sandbox)
{
    QByteArray all;
    const QDir logs(sandbox.path(QStringLiteral("logs")));
    for (const QString& name : logs.entryList({QStringLiteral("*.log")}, QDir::Files))
        all += sandbox.readFile(QStringLiteral("logs/") + name);
    return all;
}

} // namespace

TEST(AccountStorage, S3CompatibleAccountIsCheckedBeforeItIsSavedOrChanged)
{
    S3Peer peer;
    QString error;
    ASSERT_TRUE(peer.start(&error)) << error.toStdString();
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());

    // Signed the old way unless told otherwise.
    expectRun(sandbox.run(s3Add(peer, QStringLiteral("Bucket"), QStringLiteral("orv-test"))),
              kSuccess);
    const QStringList aws4{QStringLiteral("-v"), QStringLiteral("AWS4")};
    expectRun(sandbox.run(s3Add(peer, QStringLiteral("Modern"), QStringLiteral("orv-test"), aws4)),
              kSuccess);
    expectFailure(sandbox.run(s3Add(peer, QStringLiteral("Bad key"), QStringLiteral("orv-test"),
                                    {QStringLiteral("-a"), QStringLiteral("NOBODY")})),
                  kCheckFailed);
    expectFailure(sandbox.run(s3Add(peer, QStringLiteral("Bad secret"), QStringLiteral("orv-test"),
                                    {QStringLiteral("-s"), QStringLiteral("WRONG")})),
                  kCheckFailed);
    expectRun(sandbox.run(s3Add(peer, QStringLiteral("No bucket"), QStringLiteral("missing"))),
              "The specified container does not exist.\n\n", 255);
    QStringList unreachable = s3Add(peer, QStringLiteral("Away"), QStringLiteral("orv-test"));
    unreachable[6] = QStringLiteral("127.0.0.1:%1").arg(closedPort());
    expectFailure(sandbox.run(unreachable), kCheckFailed);
    ASSERT_EQ(records(sandbox).size(), 2);

    // The secret is sealed on disk and masked in the service's answers.
    const QJsonObject stored = storedFile(sandbox, QStringLiteral("Bucket"));
    EXPECT_TRUE(stored.value(QStringLiteral("DetailParams"))
                    .toObject()
                    .value(QStringLiteral("SecretKey"))
                    .toString()
                    .startsWith(QLatin1String("v1:")));
    const QJsonObject shown = record(sandbox, QStringLiteral("Bucket"));
    EXPECT_EQ(
        shown.value(QStringLiteral("DetailParams")).toObject().value(QStringLiteral("SecretKey")),
        QStringLiteral("****"));
    EXPECT_EQ(shown.value(QStringLiteral("Path")).toString(), QStringLiteral("orv-test"));
    EXPECT_EQ(shown.value(QStringLiteral("Type")).toInt(), 11);

    // An edit checks again with the stored secret.
    const QStringList edit{QStringLiteral("account"), QStringLiteral("edit"),
                           QStringLiteral("--name"), QStringLiteral("Bucket")};
    expectRun(sandbox.run(edit + QStringList{QStringLiteral("-b"), QStringLiteral("orv-other")}),
              kSuccess);
    EXPECT_EQ(record(sandbox, QStringLiteral("Bucket")).value(QStringLiteral("Path")),
              QStringLiteral("orv-other"));
    expectRun(sandbox.run(edit + QStringList{QStringLiteral("-b"), QStringLiteral("gone")}),
              "The specified container does not exist.\n\n", 255);
    EXPECT_EQ(record(sandbox, QStringLiteral("Bucket")).value(QStringLiteral("Path")),
              QStringLiteral("orv-other"));

    // A synchronisation walks the bucket.
    Kel::Cloud::Status status;
    const auto backend =
        Kel::Cloud::Backend::create(peer.config(QStringLiteral("orv-other")), &status);
    ASSERT_TRUE(backend) << status.message.toStdString();
    ASSERT_TRUE(backend->write(QStringLiteral("laptop/index/1"), QByteArray("12345")).ok());
    expectRun(sandbox.run({QStringLiteral("account"), QStringLiteral("sync"), QStringLiteral("-c"),
                           QStringLiteral("-n"), QStringLiteral("Bucket")}),
              kSuccess);
    QJsonObject synced;
    const QDeadlineTimer deadline(20000);
    do {
        synced = record(sandbox, QStringLiteral("Bucket"));
        QThread::msleep(20);
    } while (synced.value(QStringLiteral("SpaceUsed")).toInt() == 0 && !deadline.hasExpired());
    EXPECT_EQ(synced.value(QStringLiteral("SpaceUsed")).toInt(), 5);
    EXPECT_EQ(synced.value(QStringLiteral("PrefixArray")).toArray(),
              QJsonArray{QStringLiteral("laptop")});
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(AccountStorage, SftpAccountsLogInWithPasswordOrKeyAndKeepBothSecret)
{
    SftpPeer peer;
    QString error;
    ASSERT_TRUE(peer.start(&error)) << error.toStdString();
    const QString folder = peer.makeFolder(QStringLiteral("backups"));
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    sandbox.writeFile(QStringLiteral("client.key"), peer.clientKey());
    sandbox.writeFile(QStringLiteral("stranger.key"), peer.strangerKey());

    const QStringList add{
        QStringLiteral("account"),     QStringLiteral("add"),       QStringLiteral("sftp"),
        QStringLiteral("-e"),          QStringLiteral("127.0.0.1"), QStringLiteral("--port"),
        QString::number(peer.port()),  QStringLiteral("-u"),        QLatin1String(SftpPeer::User),
        QStringLiteral("--use-proxy"), QStringLiteral("false")};
    const QStringList password{QStringLiteral("--password"), QLatin1String(SftpPeer::Password)};
    QList<RunResult> outputs;
    outputs << sandbox.run(
        add + password +
        QStringList{QStringLiteral("--name"), QStringLiteral("Box"), QStringLiteral("-c"), folder});
    expectRun(outputs.last(), kSuccess);
    outputs << sandbox.run(add + QStringList{QStringLiteral("--name"), QStringLiteral("Keyed"),
                                             QStringLiteral("-c"), folder, QStringLiteral("-k"),
                                             sandbox.path(QStringLiteral("client.key"))});
    expectRun(outputs.last(), kSuccess);
    outputs << sandbox.run(add + QStringList{QStringLiteral("--name"), QStringLiteral("Stranger"),
                                             QStringLiteral("-c"), folder, QStringLiteral("-k"),
                                             sandbox.path(QStringLiteral("stranger.key"))});
    expectFailure(outputs.last(), kCheckFailed);
    outputs << sandbox.run(add + password +
                           QStringList{QStringLiteral("--name"), QStringLiteral("Lost"),
                                       QStringLiteral("-c"), folder + QStringLiteral("/none")});
    expectRun(outputs.last(), "The specified container does not exist.\n\n", 255);
    ASSERT_EQ(records(sandbox).size(), 2);

    // The server's key was recorded on first contact.
    EXPECT_TRUE(sandbox.readFile(QStringLiteral("config/known_hosts"))
                    .contains(peer.hostKeyLine().split(' ').value(1)));
    // Neither the password nor the key shows anywhere.
    const QByteArray keyBody = peer.clientKey().split('\n').value(1);
    ASSERT_FALSE(keyBody.isEmpty());
    QByteArray everything = allLogs(sandbox);
    for (const RunResult& output : outputs)
        everything += output.out + output.err;
    for (const QString& name :
         QDir(sandbox.path(QStringLiteral("config/accounts"))).entryList(QDir::Files))
        everything += sandbox.readFile(QStringLiteral("config/accounts/") + name);
    everything += QJsonDocument(records(sandbox)).toJson();
    EXPECT_FALSE(everything.contains(SftpPeer::Password));
    EXPECT_FALSE(everything.contains(keyBody));
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(AccountStorage, UntrustedCertificateIsShownAndTrustedOnlyOnYes)
{
    S3Peer peer(true);
    QString error;
    ASSERT_TRUE(peer.start(&error)) << error.toStdString();
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());

    const QSslCertificate server(peer.certificates().serverPem);
    const QLocale locale = QLocale::system();
    const auto fingerprint = [&](QCryptographicHash::Algorithm algorithm) {
        return QCryptographicHash::hash(server.toDer(), algorithm).toHex(':').toUpper();
    };
    // The name lines, from Qt's reading of the certificate.
    const auto names = [](const auto& entry) {
        return "\tCommon Name (CN):         " + entry(QSslCertificate::CommonName) +
               "\n\tOrganization (O):         " + entry(QSslCertificate::Organization) +
               "\n\tOrganizational Unit (OU): " + entry(QSslCertificate::OrganizationalUnitName) +
               "\n";
    };
    const QByteArray prompt =
        "To continue working, you need to perform the following action:\n"
        "Subject Name\n" +
        names([&](QSslCertificate::SubjectInfo info) {
            return server.subjectInfo(info).value(0).toUtf8();
        }) +
        "Issue Name\n" + names([&](QSslCertificate::SubjectInfo info) {
            return server.issuerInfo(info).value(0).toUtf8();
        }) +
        "Valid\n"
        "\tfrom:                     " +
        locale.toString(server.effectiveDate().toLocalTime(), QLocale::ShortFormat).toUtf8() +
        "\n"
        "\tuntil:                    " +
        locale.toString(server.expiryDate().toLocalTime(), QLocale::ShortFormat).toUtf8() +
        "\n"
        "Certificate fingerprints\n"
        "\tMD5:                      " +
        fingerprint(QCryptographicHash::Md5) +
        "\n"
        "\tSHA-256:                  " +
        fingerprint(QCryptographicHash::Sha256) +
        "\n"
        "\tSHA-1:                    " +
        fingerprint(QCryptographicHash::Sha1) +
        "\n"
        "Trust the following certificate? [no]:";
    const QByteArray refused = "\nUnable to add account: the SSL certificate is not trusted.\n\n";

    const QStringList add = s3Add(peer, QStringLiteral("Secure"), QStringLiteral("orv-test"),
                                  {QStringLiteral("-v"), QStringLiteral("AWS4")});
    expectRun(sandbox.run(add, "no\n"), prompt + refused, 255);
    expectRun(sandbox.run(add), prompt + refused, 255);
    expectRun(sandbox.run(add, "Sure\n"), prompt + refused, 255);
    EXPECT_TRUE(records(sandbox).isEmpty());
    EXPECT_FALSE(sandbox.readFile(QStringLiteral("config/trustedCertificates.pem"))
                     .contains(peer.certificates().serverPem));

    // The administrator may choose not to verify certificates at all.
    const QStringList lenient{QStringLiteral("config"), QStringLiteral("set"),
                              QStringLiteral("ignoressl"), QStringLiteral("-v")};
    ASSERT_EQ(sandbox.run(lenient + QStringList{QStringLiteral("yes")}).exitCode, 0);
    QStringList unchecked = add;
    unchecked[4] = QStringLiteral("Unchecked");
    expectRun(sandbox.run(unchecked), kSuccess);
    ASSERT_EQ(sandbox.run(lenient + QStringList{QStringLiteral("no")}).exitCode, 0);

    expectRun(sandbox.run(add, "y\n"), prompt + kSuccess);
    EXPECT_EQ(sandbox.readFile(QStringLiteral("config/trustedCertificates.pem")),
              peer.certificates().serverPem);
    // Trusted from now on: no question asked.
    expectRun(sandbox.run(s3Add(peer, QStringLiteral("Again"), QStringLiteral("orv-other"))),
              kSuccess);
    EXPECT_EQ(records(sandbox).size(), 3);
    EXPECT_EQ(sandbox.stopService(), 0);
}
