// A configuration moved between two instances through "config export" and
// "config import": what arrives works there, a file that is not right changes
// nothing, and a file made without passwords holds none.

#include "AccountRuns.h"
#include "ServiceRawClient.h"
#include "config/CommandExportConfig.h"
#include "config/CommandImportConfig.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvCommon/Communication/V2/SaveStorage.h"
#include "orvCommon/LocalSecret.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/Plan/RestoreFile.h"
#include "orvInfo/PlanObject.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QRegularExpression>
#include <QThread>
#include <gtest/gtest.h>

using namespace OrvTest;
using namespace OrvTest::Accounts;
using Orv::Info::PlanObject;
using Orv::Info::Plan::PlanResult;
namespace Format = Orv::Common::Communication::Commands::Format;
namespace V2 = Orv::Common::Communication::V2;

namespace {

const QByteArray kPassphrase = "moving day\n";
const QString kSecretKey = QStringLiteral("s3 secret 9f2c");
const QString kPlanPassword = QStringLiteral("correct horse");

// An instance with a folder account, a backup plan and a restore plan on it,
// both with the data's password, an S3 account with a secret, and a changed
// setting.
struct Source
{
    Sandbox sandbox;
    QUuid folderAccount;
    QUuid plan;
    QUuid restorePlan;

    bool prepare()
    {
        if (!sandbox.startService())
            return false;
        QDir().mkpath(sandbox.path(QStringLiteral("store")));
        QDir().mkpath(sandbox.path(QStringLiteral("source")));
        sandbox.writeFile(QStringLiteral("source/a.txt"), "moved along");
        expectRun(run(sandbox, "account add filesystem --name Desk -p desk -f",
                      {sandbox.path(QStringLiteral("store"))}),
                  kSuccess);
        folderAccount = QUuid(record(sandbox, QStringLiteral("Desk")).value("ID").toString());
        ServiceRawClient client(sandbox.socketPath());
        const auto saved =
            client.callTyped(V2::Storage::SaveStorage::CommandId,
                             {{"id", QUuid::createUuid().toString()},
                              {"displayName", "Bucket"},
                              {"type", 11},
                              {"prefix", "desk"},
                              {"params", QJsonObject{{"AccessKey", "AK1"},
                                                     {"SecretKey", kSecretKey},
                                                     {"Container", "bucket"},
                                                     {"Endpoint", "http://127.0.0.1:1"}}}});
        expectRun(run(sandbox, "config set threadcount -v 3"), kSuccess);
        Orv::Info::Plan::BackupFile backup;
        backup.setId(QUuid::createUuid());
        backup.setName(QStringLiteral("Nightly"));
        backup.setStorage(folderAccount);
        backup.setAccountId(folderAccount);
        backup.setIsArchive(true);
        backup.setItems({sandbox.path(QStringLiteral("source"))});
        backup.encryption().setEnabled(true);
        backup.encryption().setPassword(kPlanPassword);
        Orv::Info::Plan::RestoreFile restore;
        restore.setId(QUuid::createUuid());
        restore.setName(QStringLiteral("Back"));
        restore.setStorage(folderAccount);
        restore.setAccountId(folderAccount);
        restore.setIsArchive(true);
        restore.setRestorePoint(backup.id().toString(QUuid::WithoutBraces));
        restore.setRestoreToOriginalLocation(false);
        restore.setDestination(sandbox.path(QStringLiteral("restored")));
        restore.setUseEncryption(true);
        restore.setEncryptionPassword(kPlanPassword);
        plan = backup.id();
        restorePlan = restore.id();
        return saved && saved->value("status").toInt() == 2 && savePlan(client, backup) &&
               savePlan(client, restore);
    }

    static bool savePlan(ServiceRawClient& client, const Orv::Info::Plan::Base& plan)
    {
        const auto reply = client.call(QLatin1String(Format::Plan::CommonEdit::Name),
                                       {{QLatin1String(Format::Plan::CommonEdit::Request::PlanXml),
                                         plan.toXml(Orv::Info::Plan::Base::SecretForm::Plain)}});
        return reply && reply->value(QLatin1String(Format::Header::Status::ErrorString))
                            .toString()
                            .isEmpty();
    }
};

QJsonArray planRows(Sandbox& sandbox)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    return reply ? reply->value(QLatin1String(Format::Header::Data))
                       .toObject()
                       .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                       .toArray()
                 : QJsonArray();
}

// Runs the plan and waits for the result of that run.
PlanResult runPlan(Sandbox& sandbox, const QUuid& plan, QString* message)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto started = client.callTyped(V2::Plan::StartPlan::CommandId,
                                          {{"planId", plan.toString(QUuid::WithoutBraces)}});
    if (!started || started->value("status").toInt() != 2)
        return PlanResult(PlanResult::Failed);
    const QDeadlineTimer deadline(60000);
    while (!deadline.hasExpired()) {
        for (const QJsonValue& row : planRows(sandbox)) {
            const PlanObject object = PlanObject::fromRow(row.toObject());
            if (object.id() != plan || object.status().isRunning() ||
                object.lastRunStatus() == PlanResult(PlanResult::NeverRun))
                continue;
            *message = object.lastRunMessage();
            return object.lastRunStatus();
        }
        QThread::msleep(50);
    }
    return PlanResult(PlanResult::Failed);
}

// What two instances must agree on: the records without what the storage
// holds now, and the plans without their sealed passwords (each instance
// seals them with its own key).
QByteArray comparable(const QJsonArray& accounts, const QJsonArray& plans)
{
    QJsonArray records;
    for (const QJsonValue& value : accounts) {
        QJsonObject record = value.toObject();
        for (const char* live : {"PrefixArray", "SpaceUsed", "SyncStatus"})
            record.remove(QLatin1String(live));
        records.append(record);
    }
    QJsonArray rows;
    for (const QJsonValue& value : plans) {
        QJsonObject row;
        for (const char* key : {"ID", "Name", "Type", "Storage"})
            row.insert(QLatin1String(key), value[QLatin1String(key)]);
        // Read and written again here, so that both have the same attribute order.
        const QString xml = value["PlanXml"].toString().remove(
            QRegularExpression(QStringLiteral("<Password[^>]*>[^<]*</Password>")));
        const auto plan = Orv::Info::Plan::Factory::create(xml);
        row.insert("PlanXml", plan ? plan->toXml(Orv::Info::Plan::Base::SecretForm::Plain) : xml);
        rows.append(row);
    }
    return QJsonDocument(QJsonObject{{"accounts", records}, {"plans", rows}}).toJson();
}

QStringList configFiles(Sandbox& sandbox)
{
    QStringList files;
    for (const char* folder : {"config/accounts", "config/plans"})
        for (const QString& name : QDir(sandbox.path(QLatin1String(folder))).entryList(QDir::Files))
            files.append(QLatin1String(folder) + QLatin1Char('/') + name);
    return files << QString::fromLatin1(
               sandbox.readFile(QStringLiteral("config/defaultSettings.conf")));
}

QByteArray importSummary(int accounts, int ofAccounts, int plans, int ofPlans)
{
    return QStringLiteral("Default settings imported successfully\n"
                          "Cloud accounts imported: %1 from %2\nPlans imported: %3 from %4\n")
        .arg(accounts)
        .arg(ofAccounts)
        .arg(plans)
        .arg(ofPlans)
        .toUtf8();
}

} // namespace

// Exported from one instance and imported into a fresh one: settings,
// accounts and plans are the same there, the secrets open with the new
// instance's key, and the plans' data password still works: the backup plan
// adds to the repository its first instance made, and the restore plan reads
// back from it what both instances wrote. A second import of the same file finds
// everything taken and says so item by item.
TEST(ConfigTransfer, ExportedConfigurationWorksOnAnotherInstance)
{
    Source source;
    ASSERT_TRUE(source.prepare());
    QString message;
    ASSERT_EQ(runPlan(source.sandbox, source.plan, &message), PlanResult(PlanResult::Success))
        << message.toStdString();
    const QString file = source.sandbox.path(QStringLiteral("moved.orvconfiguration"));
    expectRun(
        source.sandbox.run({"config", "export", "-p", source.sandbox.path("moved")}, kPassphrase),
        "Configuration successfully exported to " + file.toUtf8() + " \n" + kSuccess);
    const QByteArray bytes = source.sandbox.readFile(QStringLiteral("moved.orvconfiguration"));
    EXPECT_FALSE(bytes.contains(kSecretKey.toUtf8()));
    EXPECT_FALSE(bytes.contains(kPlanPassword.toUtf8()));

    Sandbox target;
    ASSERT_TRUE(target.startService());
    expectRun(target.run({"config", "import", "-p", file}, kPassphrase),
              importSummary(2, 2, 2, 2) + "Configuration successfully imported from " +
                  file.toUtf8() + "\n" + kSuccess);
    EXPECT_EQ(comparable(records(target), planRows(target)).toStdString(),
              comparable(records(source.sandbox), planRows(source.sandbox)).toStdString());
    expectRun(run(target, "config get threadcount"),
              run(source.sandbox, "config get threadcount").out.mid(kBanner.size()));

    const QString bucket = record(target, QStringLiteral("Bucket")).value("ID").toString();
    const QJsonObject stored =
        QJsonDocument::fromJson(
            target.readFile(QStringLiteral("config/accounts/%1.json")
                                .arg(QUuid(bucket).toString(QUuid::WithoutBraces))))
            .object();
    const auto secret =
        Orv::Common::LocalSecret(target.path(QStringLiteral("config/local.key")))
            .decrypt(stored.value("DetailParams").toObject().value("SecretKey").toString());
    ASSERT_TRUE(secret.has_value()) << "the secret is not sealed with the new instance's key";
    EXPECT_EQ(QString::fromUtf8(*secret), kSecretKey);
    source.sandbox.writeFile(QStringLiteral("source/b.txt"), "and on");
    ASSERT_EQ(runPlan(target, source.plan, &message), PlanResult(PlanResult::Success))
        << message.toStdString();
    ASSERT_EQ(runPlan(target, source.restorePlan, &message), PlanResult(PlanResult::Success))
        << message.toStdString();
    const QString restored = QStringLiteral("restored") + source.sandbox.path("source");
    EXPECT_EQ(source.sandbox.readFile(restored + QStringLiteral("/a.txt")), "moved along");
    EXPECT_EQ(source.sandbox.readFile(restored + QStringLiteral("/b.txt")), "and on");

    const QStringList before = configFiles(target);
    const RunResult again = target.run({"config", "import", "-p", file}, kPassphrase);
    EXPECT_EQ(again.exitCode, 255);
    EXPECT_TRUE(again.out.startsWith(kBanner + importSummary(0, 2, 0, 2)));
    for (const char* taken :
         {"Account \"Desk\"", "Account \"Bucket\"", "Plan \"Nightly\"", "Plan \"Back\""})
        EXPECT_TRUE(again.out.contains(QByteArray(taken) + " {")) << taken;
    EXPECT_EQ(again.out.count("is already here; it is left as it is"), 4)
        << again.out.toStdString();
    EXPECT_EQ(configFiles(target), before);
}

// Files that must not be imported leave the instance as it was and say why;
// an export that cannot be written leaves nothing behind.
TEST(ConfigTransfer, BadFilesChangeNothing)
{
    Source source;
    ASSERT_TRUE(source.prepare());
    ASSERT_EQ(
        source.sandbox.run({"config", "export", "-p", source.sandbox.path("good")}, kPassphrase)
            .exitCode,
        0);
    const QByteArray good = source.sandbox.readFile(QStringLiteral("good.orvconfiguration"));
    QByteArray damaged = good;
    damaged[good.size() - 40] = damaged[good.size() - 40] == 'a' ? 'b' : 'a';
    QByteArray newer = good;
    newer.replace("\"version\":1", "\"version\":2");

    Sandbox target;
    ASSERT_TRUE(target.startService());
    const QStringList before = configFiles(target);
    struct Case
    {
        const char* name;
        QByteArray contents;
        QByteArray passphrase;
        const char* reason;
    };
    const Case cases[] = {
        {"damaged", damaged, kPassphrase,
         "it is damaged: its contents do not match their checksum"},
        {"truncated", good.left(good.size() / 2), kPassphrase, "it was probably truncated"},
        {"foreign", "PK\x03\x04 not ours at all\n", kPassphrase,
         "it is not a configuration file exported by this client"},
        {"newer", newer, kPassphrase,
         "it was exported by a newer version of the client (file format 2; this version reads "
         "format 1)"},
        {"wrong passphrase", good, "moving night\n", "the passphrase does not open its secrets"},
        {"no passphrase", good, "", "give the passphrase it was exported with"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        target.writeFile(QStringLiteral("in.orvconfiguration"), c.contents);
        const QString path = target.path(QStringLiteral("in.orvconfiguration"));
        const RunResult result = target.run({"config", "import", "-p", path}, c.passphrase);
        EXPECT_EQ(result.exitCode, 255);
        EXPECT_TRUE(result.out.startsWith(kBanner + "Cannot import " + path.toUtf8() + ": "))
            << result.out.toStdString();
        EXPECT_TRUE(result.out.contains(c.reason)) << result.out.toStdString();
        EXPECT_EQ(configFiles(target), before);
    }
    expectRun(run(target, "config import -p /missing/file"), "file does not exist /missing/file\n");

    // The name is taken by a folder: the rename at the end fails.
    QDir().mkpath(source.sandbox.path(QStringLiteral("out/taken.orvconfiguration")));
    const RunResult blocked = source.sandbox.run(
        {"config", "export", "-p", source.sandbox.path("out/taken")}, kPassphrase);
    EXPECT_EQ(blocked.exitCode, 255);
    EXPECT_TRUE(blocked.out.contains("Cannot write the configuration to "))
        << blocked.out.toStdString();
    EXPECT_EQ(QDir(source.sandbox.path(QStringLiteral("out")))
                  .entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden),
              QStringList{QStringLiteral("taken.orvconfiguration")});
}

// Without passwords the file holds no secret in any form, needs no
// passphrase, and the backup plan arrives with its encryption off.
TEST(ConfigTransfer, RemovedPasswordsLeaveNoSecretInTheFile)
{
    Source source;
    ASSERT_TRUE(source.prepare());
    const QString file = source.sandbox.path(QStringLiteral("bare.orvconfiguration"));
    ASSERT_EQ(
        source.sandbox.run({"config", "export", "-p", file, "--remove-password", "true"}).exitCode,
        0);
    const QByteArray bytes = source.sandbox.readFile(QStringLiteral("bare.orvconfiguration"));
    for (const QString& secret : {kSecretKey, kPlanPassword, QStringLiteral("pass1:"),
                                  QStringLiteral("v1:"), QStringLiteral("SecretKey")})
        EXPECT_FALSE(bytes.contains(secret.toUtf8())) << secret.toStdString();

    Sandbox target;
    ASSERT_TRUE(target.startService());
    expectRun(target.run({"config", "import", "-p", file}),
              importSummary(2, 2, 2, 2) + "Configuration successfully imported from " +
                  file.toUtf8() + "\n" + kSuccess);
    int backups = 0;
    for (const QJsonValue& row : planRows(target)) {
        const auto plan = Orv::Info::Plan::Factory::create(row["PlanXml"].toString())
                              .dynamicCast<Orv::Info::Plan::BackupFile>();
        if (!plan)
            continue;
        ++backups;
        EXPECT_FALSE(plan->encryption().isEnabled());
        EXPECT_TRUE(plan->encryption().password().isEmpty());
    }
    EXPECT_EQ(backups, 1);
}

// The file an export's -p names, and the counts an import prints.
TEST(ConfigTransfer, TargetPathAndSummary)
{
    using Orv::CLI::CommandExportConfig;
    const QString extension = QStringLiteral(".orvconfiguration");
    EXPECT_EQ(CommandExportConfig::targetPath("/backups/my"), "/backups/my" + extension);
    EXPECT_EQ(CommandExportConfig::targetPath("/backups/my" + extension),
              "/backups/my" + extension);
    EXPECT_EQ(CommandExportConfig::targetPath("/backups/my.ORVCONFIGURATION"),
              "/backups/my.ORVCONFIGURATION" + extension);
    EXPECT_TRUE(
        QRegularExpression(QStringLiteral("^/backups/configuration-[0-9_-]+\\.orvconfiguration$"))
            .match(CommandExportConfig::targetPath("/backups/"))
            .hasMatch());

    const QJsonObject partial{{"settingsSize", 0},
                              {"storageSize", 3},
                              {"storageFailed", 1},
                              {"planSize", 2},
                              {"planFailed", 2}};
    EXPECT_EQ(Orv::CLI::CommandImportConfig::printResult(partial),
              "Cloud accounts imported: 2 from 3\nPlans imported: 0 from 2\n");
}
