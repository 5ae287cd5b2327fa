// The diagnostic archive, its upload, the update check and download, and the
// uninstall notification, end to end: orvV2 and orvd against HTTPS servers on
// loopback that the instance's trusted-certificate store does or does not
// trust.
#include "integration/AccountRuns.h"
#include "unit/LoopbackHttpsServer.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QRandomGenerator>
#include <QThread>
#include <minizip/unzip.h>

using namespace OrvTest;
using namespace OrvTest::Accounts;

namespace {

const QByteArray kAccountSecret = "s3-Secret-Value-7731";
const QByteArray kProxySecret = "proxy-Secret-5150";
const QByteArray kPlanSecret = "plan-Secret-pa55";
const QByteArray kCaseReply = R"({"caseId": "CASE-42"})";

// An address on the server with the given path.
QString urlOf(const LoopbackHttpsServer& server, const QString& path)
{
    return server.url().replace(QStringLiteral("/confirm"), path);
}

// What orvd reads at start: the branding's addresses and the trusted store.
void configure(Sandbox& sandbox, const QList<QPair<QString, QString>>& branding,
               const QList<const LoopbackHttpsServer*>& trusted)
{
    QByteArray conf = "[General]\n";
    for (const auto& entry : branding)
        conf += entry.first.toUtf8() + "=" + entry.second.toUtf8() + "\n";
    sandbox.writeFile(QStringLiteral("config/branding.conf"), conf);
    QByteArray pem;
    for (const LoopbackHttpsServer* server : trusted) {
        QFile file(server->caFile());
        EXPECT_TRUE(file.open(QIODevice::ReadOnly));
        pem += file.readAll();
    }
    sandbox.writeFile(QStringLiteral("config/trustedCertificates.pem"), pem);
}

void restart(Sandbox& sandbox)
{
    if (sandbox.servicePid()) {
        EXPECT_EQ(sandbox.stopService(), 0);
    }
    ASSERT_TRUE(sandbox.startService());
}

// Every entry of the archive, unpacked; a CRC error fails the test.
QMap<QString, QByteArray> unpack(const QString& path)
{
    QMap<QString, QByteArray> entries;
    unzFile zip = unzOpen64(QFile::encodeName(path).constData());
    EXPECT_NE(zip, nullptr) << path.toStdString();
    if (!zip)
        return entries;
    for (int at = unzGoToFirstFile(zip); at == UNZ_OK; at = unzGoToNextFile(zip)) {
        char name[1024];
        unz_file_info64 info{};
        unzGetCurrentFileInfo64(zip, &info, name, sizeof(name), nullptr, 0, nullptr, 0);
        EXPECT_EQ(unzOpenCurrentFile(zip), UNZ_OK);
        QByteArray data;
        char block[65536];
        for (int got; (got = unzReadCurrentFile(zip, block, sizeof(block))) > 0;)
            data.append(block, got);
        EXPECT_EQ(unzCloseCurrentFile(zip), UNZ_OK) << name;
        entries.insert(QString::fromUtf8(name), data);
    }
    unzClose(zip);
    return entries;
}

QStringList filesIn(const Sandbox& sandbox, const QString& folder, const QString& pattern)
{
    return QDir(sandbox.path(folder)).entryList({pattern}, QDir::Files | QDir::Hidden);
}

// The body of the last request the server received.
QByteArray bodyOf(const LoopbackHttpsServer& server)
{
    const QByteArray request = server.lastRequest();
    return request.mid(request.indexOf("\r\n\r\n") + 4);
}

QString planId(Sandbox& sandbox, const QString& name)
{
    for (QDeadlineTimer deadline(10000); !deadline.hasExpired(); QThread::msleep(50)) {
        ServiceRawClient client(sandbox.socketPath());
        const auto reply = client.call(QStringLiteral("PlanGetList"));
        const QJsonArray plans = reply ? reply->value(QStringLiteral("data"))
                                             .toObject()
                                             .value(QStringLiteral("planList"))
                                             .toArray()
                                       : QJsonArray();
        for (const QJsonValue& plan : plans)
            if (plan[QStringLiteral("Name")].toString() == name)
                return plan[QStringLiteral("ID")].toString();
    }
    return QString();
}

// An account with secrets in its configuration, a plan with a password, and a
// log large enough to take many blocks of the archive.
void populate(Sandbox& sandbox, QByteArray* bigLog)
{
    const QString s3Id = QUuid::createUuid().toString();
    const QJsonObject s3{
        {"ID", s3Id},
        {"DisplayName", "Cloud"},
        {"Type", 2},
        {"DetailParams", QJsonObject{{"AccessKey", "AKIDEXAMPLE"},
                                     {"SecretKey", QString::fromLatin1(kAccountSecret)},
                                     {"ProxyPassword", QString::fromLatin1(kProxySecret)},
                                     {"Container", "bucket"}}}};
    sandbox.writeFile(QStringLiteral("config/accounts/%1.json").arg(s3Id),
                      QJsonDocument(s3).toJson());
    bigLog->reserve(6 << 20);
    for (int line = 0; bigLog->size() < (6 << 20); ++line)
        *bigLog += "2024-01-01 00:00:00 line " + QByteArray::number(line) + " " +
                   QByteArray::number(QRandomGenerator::global()->generate64(), 36) + "\n";
    sandbox.writeFile(QStringLiteral("logs/big.log"), *bigLog);
}

} // namespace

TEST(MaintenanceCommands, DiagnosticArchiveHidesEverySecretAndReachesSupport)
{
    Sandbox sandbox;
    LoopbackHttpsServer support(200, kCaseReply);
    LoopbackHttpsServer stranger(200, kCaseReply);
    configure(sandbox, {{"SupportUploadUrl", urlOf(support, "/logs")}}, {&support});
    QByteArray bigLog;
    populate(sandbox, &bigLog);
    ASSERT_TRUE(sandbox.startService());
    QDir().mkpath(sandbox.path(QStringLiteral("store")));
    QDir().mkpath(sandbox.path(QStringLiteral("docs")));
    expectRun(run(sandbox, "account add filesystem --name Desk -p desk -f",
                  {sandbox.path(QStringLiteral("store"))}),
              kSuccess);
    const RunResult created = run(sandbox,
                                  "plan create_backup --confirm --account Desk --format nbf "
                                  "--name Docs --encryption true --encryption-password",
                                  {QString::fromLatin1(kPlanSecret), QStringLiteral("--source"),
                                   sandbox.path(QStringLiteral("docs"))});
    ASSERT_EQ(created.exitCode, 0) << created.out.toStdString();
    const QString plan = planId(sandbox, QStringLiteral("Docs"));
    ASSERT_FALSE(plan.isEmpty());

    // save-log names the file itself, inside the folder it creates.
    const RunResult saved = run(sandbox, "feedback save-log --path out/diag");
    const QStringList archives = filesIn(sandbox, QStringLiteral("out/diag"), "*");
    ASSERT_EQ(archives.size(), 1) << saved.out.toStdString();
    ASSERT_TRUE(archives.first().startsWith(QLatin1String("Logs_")));
    const QString archive = sandbox.path(QStringLiteral("out/diag/") + archives.first());
    expectRun(saved, "Diagnostic logs are saved to " + archive.toUtf8() + "\n" + kSuccess);

    const QMap<QString, QByteArray> entries = unpack(archive);
    for (const QString& name :
         {QStringLiteral("summary/summary.txt"),
          QStringLiteral("plans/") + plan.mid(1, 36) + ".xml", QStringLiteral("logs/big.log"),
          QStringLiteral("other/ps_aux"), QStringLiteral("other/df"),
          QStringLiteral("other/network"), QStringLiteral("other/certs/1.pem")})
        EXPECT_TRUE(entries.contains(name)) << name.toStdString();
    EXPECT_EQ(entries.keys().filter(QRegularExpression("^accounts/.*\\.json$")).size(), 2);
    EXPECT_EQ(entries.value(QStringLiteral("logs/big.log")), bigLog);
    EXPECT_TRUE(entries.value(QStringLiteral("summary/summary.txt")).contains("Docs"));
    QByteArray everything;
    for (const QByteArray& data : entries)
        everything += data;
    for (const QByteArray& secret : {kAccountSecret, kProxySecret, kPlanSecret})
        EXPECT_FALSE(everything.contains(secret)) << secret.toStdString();
    // Nor the plan's password in its sealed form.
    const QStringList planFiles = filesIn(sandbox, QStringLiteral("config/plans"), "*.xml");
    ASSERT_EQ(planFiles.size(), 1);
    const QByteArray planFile =
        sandbox.readFile(QStringLiteral("config/plans/") + planFiles.first());
    const QRegularExpressionMatch sealed =
        QRegularExpression(">(v1:[^<]+)<").match(QString::fromUtf8(planFile));
    ASSERT_TRUE(sealed.hasMatch()) << planFile.toStdString();
    EXPECT_FALSE(everything.contains(sealed.captured(1).toUtf8()));

    // send-log: the standalone variant wants an address first, then a name.
    expectRun(run(sandbox, "feedback send-log --user Ann"),
              "Option [ email ] is mandatory.\n\nUnknown command.\n\n");
    const RunResult sent = run(sandbox, "feedback send-log --email ann@example.org --user Ann "
                                        "--message disk-full --local true");
    const QStringList kept = filesIn(sandbox, QString(), "Logs_*.zip");
    ASSERT_EQ(kept.size(), 1);
    expectRun(sent, "Diagnostic logs are saved to " + sandbox.path(kept.first()).toUtf8() +
                        ", please send the file manually\nSending logs to server...\n"
                        "Report result: Success\nCase ID:CASE-42\n");
    EXPECT_TRUE(support.lastRequest().startsWith("POST /logs "));
    EXPECT_TRUE(support.lastRequest().contains("X-Orv-Email: ann%40example.org\r\n"));
    EXPECT_EQ(bodyOf(support), sandbox.readFile(kept.first()));

    // A support server the store does not trust never receives the archive,
    // and the temporary archive made for sending goes away.
    configure(sandbox, {{"SupportUploadUrl", urlOf(stranger, "/logs")}}, {&support});
    restart(sandbox);
    const RunResult refused = run(sandbox, "feedback send-log --email a@b.org --user Ann");
    EXPECT_EQ(refused.exitCode, 255);
    EXPECT_TRUE(refused.out.startsWith(kBanner + "Sending logs to server...\n"
                                                 "Failed to send logs to server.\nError buf:"))
        << refused.out.toStdString();
    EXPECT_TRUE(refused.out.contains("is not trusted")) << refused.out.toStdString();
    EXPECT_EQ(stranger.lastRequest(), QByteArray());
    EXPECT_EQ(filesIn(sandbox, QStringLiteral("data"), "*.zip*"), QStringList());
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(MaintenanceCommands, UpdateIsOfferedOnlyOnceItMatchesTheFeed)
{
    QByteArray package(3 << 20, Qt::Uninitialized);
    QRandomGenerator::global()->fillRange(reinterpret_cast<quint32*>(package.data()),
                                          package.size() / 4);
    const QByteArray sha256 = QCryptographicHash::hash(package, QCryptographicHash::Sha256).toHex();
    LoopbackHttpsServer downloads(200, package);
    const QString packageUrl = urlOf(downloads, QStringLiteral("/orv-999.0.pkg"));
    const auto feed = [&](const QByteArray& version, const QByteArray& checksum, qint64 size) {
        return QJsonDocument(QJsonObject{{"version", QString::fromLatin1(version)},
                                         {"url", packageUrl},
                                         {"size", size},
                                         {"sha256", QString::fromLatin1(checksum)}})
            .toJson();
    };
    const QByteArray newer = kBanner + "A newer version is available for update.\n";
    struct Row
    {
        const char* what;
        QByteArray feed;
        bool trusted;
        QString words;
        QByteArray input;
        QByteArray outStart;
        QByteArray outEnd;
        bool offered;
    };
    const QByteArray otherSum = QCryptographicHash::hash("x", QCryptographicHash::Sha256).toHex();
    const QList<Row> rows = {
        {"up to date",
         feed("0.0.1", sha256, package.size()),
         true,
         "check_update",
         {},
         kBanner + "Current version is up to date.\n",
         "",
         false},
        {"untrusted feed",
         feed("999.0", sha256, package.size()),
         false,
         "check_update",
         {},
         kBanner + "Check new version error. the product information cannot be read from ",
         "\n",
         false},
        {"declined", feed("999.0", sha256, package.size()), true, "check_update", "n\n",
         newer + "Download and install it [no]?\n\n", "", false},
        {"wrong checksum",
         feed("999.0", otherSum, package.size()),
         true,
         "check_update --update",
         {},
         newer + "Download started.\n[",
         "Download error. The download from " + packageUrl.toUtf8() +
             " does not match the SHA-256 the product information gives\n\n",
         false},
        {"short download", feed("999.0", sha256, package.size() + 10), true, "check_update",
         "Yes\n", newer + "Download and install it [no]?\nDownload started.\n[",
         " bytes where the product information gives " + QByteArray::number(package.size() + 10) +
             "\n\n",
         false},
        {"verified",
         feed("999.0", sha256, package.size()),
         true,
         "check_update --update",
         {},
         newer + "Download started.\n[",
         "[" + QByteArray(50, '#') +
             "] 100 %\r\nNew version successfully downloaded.\nExit to install new version.\n"
             "Success.\n\n",
         true},
    };
    Sandbox sandbox;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        LoopbackHttpsServer feedServer(200, row.feed);
        configure(sandbox, {{"UpdateFeedUrl", urlOf(feedServer, "/latest.json")}},
                  row.trusted ? QList<const LoopbackHttpsServer*>{&feedServer, &downloads}
                              : QList<const LoopbackHttpsServer*>{&downloads});
        restart(sandbox);
        const RunResult result = sandbox.run(row.words.split(' '), row.input);
        EXPECT_EQ(result.exitCode, 0);
        EXPECT_TRUE(result.out.startsWith(row.outStart)) << result.out.toStdString();
        EXPECT_TRUE(result.out.endsWith(row.outEnd)) << result.out.toStdString();
        // Nothing that looks like a package unless it was verified.
        const QStringList left = filesIn(sandbox, QStringLiteral("data/updates"), "*");
        EXPECT_EQ(left, row.offered ? QStringList{"orv-999.0.pkg"} : QStringList());
    }
    EXPECT_EQ(sandbox.readFile(QStringLiteral("data/updates/orv-999.0.pkg")), package);
    EXPECT_EQ(sandbox.stopService(), 0);
}

TEST(MaintenanceCommands, ManagedClientReportsThroughTheService)
{
    Sandbox sandbox;
    sandbox.setManaged(true);
    LoopbackHttpsServer service(200, kCaseReply);
    configure(sandbox,
              {{"UninstallNotificationUrl", urlOf(service, "/uninstall")},
               {"SupportUploadUrl", urlOf(service, "/logs")}},
              {&service});
    ASSERT_TRUE(sandbox.startService());

    expectRun(run(sandbox, "senduninstallnotification"), kSuccess);
    EXPECT_TRUE(service.lastRequest().startsWith("POST /uninstall "))
        << service.lastRequest().toStdString();
    EXPECT_TRUE(bodyOf(service).contains(R"("event":"uninstall")"));
    EXPECT_FALSE(run(sandbox, "").out.contains("senduninstallnotification"));

    // The managed variant does not ask for an address.
    expectRun(run(sandbox, "feedback send-log --user Ann"),
              "Sending logs to server...\nReport result: Success\nSupport Case ID : CASE-42\n");
    EXPECT_TRUE(service.lastRequest().contains("X-Orv-Edition: managed\r\n"));
    EXPECT_TRUE(bodyOf(service).startsWith("PK\x03\x04"));
    EXPECT_EQ(sandbox.stopService(), 0);
}
