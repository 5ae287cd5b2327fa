// Plans run by the real orvd on a folder account: saved through the channel,
// started, stopped, followed in the plan list, restored bit for bit, and the
// faults of a run (actions that fail or hang, a service killed mid-run, a
// plan this build cannot run) recorded where an administrator looks.

#include "PlanRuns.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/Plan/PlanStatus.h"
#include "orvInfo/Plan/RestoreFile.h"
#include "orvInfo/PlanObject.h"
#include "support/Sandbox.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QRandomGenerator>
#include <QThread>
#include <gtest/gtest.h>

using namespace OrvTest;
using Orv::Info::PlanObject;
using Orv::Info::Plan::PlanResult;
using Orv::Info::Plan::PlanStatus;
namespace Format = Orv::Common::Communication::Commands::Format;
namespace V2Plan = Orv::Common::Communication::V2::Plan;

namespace {

class PlanRuns : public ::testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox.startService());
        accountId = Plans::addFolderAccount(sandbox);
        ASSERT_FALSE(accountId.isNull());
        source = sandbox.path(QStringLiteral("source"));
        makeTree(source);
    }

    static void makeTree(const QString& root)
    {
        QRandomGenerator random(7);
        QDir().mkpath(root + QStringLiteral("/docs/empty"));
        for (int i = 0; i < 40; ++i) {
            QByteArray data(int(random.bounded(1, 300000)), Qt::Uninitialized);
            for (char& c : data)
                c = char(random.bounded(256));
            QFile file(QStringLiteral("%1/docs/file-%2.bin").arg(root).arg(i));
            ASSERT_TRUE(file.open(QIODevice::WriteOnly));
            file.write(data);
        }
        QFile::link(QStringLiteral("docs/file-1.bin"), root + QStringLiteral("/link"));
    }

    Orv::Info::Plan::BackupFile backupPlan(const QString& name) const
    {
        Orv::Info::Plan::BackupFile plan;
        plan.setId(QUuid::createUuid());
        plan.setName(name);
        plan.setStorage(accountId);
        plan.setAccountId(accountId);
        plan.setIsArchive(true);
        plan.setItems({source});
        plan.setBackupEmptyFolders(true);
        plan.encryption().setEnabled(true);
        plan.encryption().setPassword(QStringLiteral("correct horse"));
        return plan;
    }

    QString save(const Orv::Info::Plan::Base& plan) { return Plans::savePlan(sandbox, plan); }
    QString start(const QUuid& plan) { return Plans::startPlan(sandbox, plan); }
    QString stop(const QUuid& plan) { return Plans::stopPlan(sandbox, plan); }
    PlanObject row(const QUuid& plan) { return Plans::planRow(sandbox, plan); }
    PlanObject waitIdle(const QUuid& plan, int limitMs = 60000)
    {
        return Plans::waitIdle(sandbox, plan, limitMs);
    }

    Sandbox sandbox;
    QUuid accountId;
    QString source;
};

// Each entry under root with its kind and, for a file, a digest of its bytes.
QStringList contents(const QString& root)
{
    QStringList files;
    QDirIterator it(root, QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System,
                    QDirIterator::Subdirectories);
    while (it.hasNext()) {
        const QString path = it.next();
        const QFileInfo info = it.fileInfo();
        const QString relative = path.mid(root.size());
        if (info.isSymLink()) {
            files.append(relative + QStringLiteral(" -> ") +
                         QFile::symLinkTarget(path).mid(root.size()));
        } else if (info.isDir()) {
            files.append(relative + QStringLiteral("/"));
        } else {
            QFile file(path);
            const QByteArray data = file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
            files.append(relative + QLatin1Char(' ') +
                         QString::fromLatin1(
                             QCryptographicHash::hash(data, QCryptographicHash::Sha1).toHex()));
        }
    }
    files.sort();
    return files;
}

} // namespace

// The whole life of a backup plan and its restore plan: saved with the
// password sealed at rest, run twice (full, then increment), followed in the
// plan list, restored elsewhere bit for bit, refused while it runs.
TEST_F(PlanRuns, BackupThenRestoreThroughPlans)
{
    for (const bool newFormat : {true, false}) {
        SCOPED_TRACE(newFormat ? "new format" : "current format");
        Orv::Info::Plan::BackupFile plan =
            backupPlan(newFormat ? QStringLiteral("Nightly") : QStringLiteral("Versions"));
        plan.setIsArchive(newFormat);
        ASSERT_EQ(save(plan), QString());
        const QByteArray stored = sandbox.readFile(
            QStringLiteral("config/plans/%1.xml").arg(plan.id().toString(QUuid::WithoutBraces)));
        EXPECT_TRUE(stored.contains(plan.name().toUtf8()));
        EXPECT_FALSE(stored.contains("correct horse")) << "the password is kept in clear";

        EXPECT_EQ(row(plan.id()).lastRunStatus(), PlanResult(PlanResult::NeverRun));
        ASSERT_EQ(start(plan.id()), QString());
        EXPECT_EQ(start(plan.id()), QStringLiteral("Plan already running.\n"));
        PlanObject done = waitIdle(plan.id());
        ASSERT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
        EXPECT_GT(done.lastFileSize(), 40 * 1000);
        EXPECT_TRUE(done.lastRunTime().isValid());

        QFile changed(source + QStringLiteral("/docs/file-3.bin"));
        ASSERT_TRUE(changed.open(QIODevice::Append));
        changed.write("one more line\n");
        changed.close();
        ASSERT_EQ(start(plan.id()), QString());
        done = waitIdle(plan.id());
        ASSERT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
        EXPECT_EQ(done.lastUploadedCount(), 1) << "only the changed file is read again";

        // The local data is gone (a new machine): the restore syncs first.
        ASSERT_TRUE(QDir(sandbox.path(QStringLiteral("data/cache"))).removeRecursively());
        Orv::Info::Plan::RestoreFile restore;
        restore.setSyncBeforeRun(true);
        restore.setId(QUuid::createUuid());
        restore.setName(QStringLiteral("Back"));
        restore.setStorage(accountId);
        restore.setAccountId(accountId);
        restore.setIsArchive(newFormat);
        if (newFormat)
            restore.setRestorePoint(plan.id().toString(QUuid::WithoutBraces));
        restore.setRestoreToOriginalLocation(false);
        const QString target = sandbox.path(newFormat ? QStringLiteral("restored")
                                                      : QStringLiteral("restored-versions"));
        restore.setDestination(target);
        restore.setUseEncryption(true);
        restore.setEncryptionPassword(QStringLiteral("correct horse"));
        ASSERT_EQ(save(restore), QString());
        ASSERT_EQ(start(restore.id()), QString());
        done = waitIdle(restore.id());
        ASSERT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
        EXPECT_EQ(contents(target + source).join('\n').toStdString(),
                  contents(source).join('\n').toStdString());
    }
}

// What an administrator reads when a run goes wrong: each case is one plan
// with one fault, and the result and message its row shows afterwards.
TEST_F(PlanRuns, FaultsEndTheRunWithTheirReason)
{
    const QString script = sandbox.path(QStringLiteral("action.sh"));
    sandbox.writeFile(QStringLiteral("action.sh"), "#!/bin/sh\necho \"action says $1\"\n"
                                                   "[ \"$1\" = hang ] && exec sleep 60\n"
                                                   "[ \"$1\" = fail ] && exit 3\nexit 0\n");
    QFile::setPermissions(script, QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
    struct Case
    {
        const char* name;
        const char* pre;
        bool terminate;
        quint64 stopAfterMs;
        PlanResult::Value result;
        const char* message;
    };
    const Case cases[] = {
        {"failing pre-action stops the plan", "fail", true, 0, PlanResult::Failed,
         "failed with exit code 3"},
        {"failing pre-action without terminate", "fail", false, 0, PlanResult::Warning,
         "failed with exit code 3"},
        {"hanging pre-action meets the time limit", "hang", true, 1500, PlanResult::Stopped,
         "time limit"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Orv::Info::Plan::BackupFile plan = backupPlan(QString::fromLatin1(c.name));
        plan.actions().pre().setEnabled(true);
        plan.actions().pre().setProgram(
            QStringLiteral("\"%1\" %2").arg(script, QLatin1String(c.pre)));
        plan.actions().pre().setTerminateOnFailure(c.terminate);
        plan.schedule().setStopAfter(c.stopAfterMs);
        ASSERT_EQ(save(plan), QString());
        QElapsedTimer clock;
        clock.start();
        ASSERT_EQ(start(plan.id()), QString());
        const PlanObject done = waitIdle(plan.id());
        EXPECT_LT(clock.elapsed(), 30000);
        EXPECT_EQ(done.lastRunStatus(), PlanResult(c.result))
            << done.lastRunMessage().toStdString();
        EXPECT_TRUE(done.lastRunMessage().contains(QLatin1String(c.message)))
            << done.lastRunMessage().toStdString();
    }
    const QByteArray log = sandbox.readFile(QStringLiteral("logs/orvd.log"));
    EXPECT_TRUE(log.contains("pre-action: action says fail"));

    // Stopped on request while its pre-action waits.
    Orv::Info::Plan::BackupFile slow = backupPlan(QStringLiteral("Slow"));
    slow.actions().pre().setEnabled(true);
    slow.actions().pre().setProgram(QStringLiteral("\"%1\" hang").arg(script));
    ASSERT_EQ(save(slow), QString());
    EXPECT_EQ(stop(slow.id()), QStringLiteral("Plan already stopped"));
    ASSERT_EQ(start(slow.id()), QString());
    QThread::msleep(300);
    EXPECT_EQ(stop(slow.id()), QString());
    EXPECT_EQ(waitIdle(slow.id(), 15000).lastRunStatus(), PlanResult(PlanResult::Stopped));

    // A restore of the current format with no such backup on the account
    // (here or in the storage) fails with the reason.
    Orv::Info::Plan::RestoreFile nothing;
    nothing.setId(QUuid::createUuid());
    nothing.setName(QStringLiteral("Nothing"));
    nothing.setStorage(accountId);
    nothing.setAccountId(accountId);
    ASSERT_EQ(save(nothing), QString());
    ASSERT_EQ(start(nothing.id()), QString());
    const PlanObject failed = waitIdle(nothing.id());
    EXPECT_EQ(failed.lastRunStatus(), PlanResult(PlanResult::Failed));
    EXPECT_TRUE(failed.lastRunMessage().contains("holds no backup of the current format"))
        << failed.lastRunMessage().toStdString();

    // A block-level plan of the current format runs as any other.
    Orv::Info::Plan::BackupFile blocks = backupPlan(QStringLiteral("Blocks"));
    blocks.setIsArchive(false);
    blocks.setUseDifferentialUpload(true);
    ASSERT_EQ(save(blocks), QString());
    ASSERT_EQ(start(blocks.id()), QString());
    const PlanObject done = waitIdle(blocks.id());
    EXPECT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
        << done.lastRunMessage().toStdString();

    // Stopped mid-run, the service ends the run as stopped and says why.
    ASSERT_EQ(start(slow.id()), QString());
    QThread::msleep(300);
    EXPECT_EQ(sandbox.stopService(), 0);
    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(row(slow.id()).lastRunStatus(), PlanResult(PlanResult::Stopped));
    EXPECT_TRUE(row(slow.id()).lastRunMessage().contains("service was stopping"));

    // Killed mid-run, the service records the run as interrupted.
    ASSERT_EQ(start(slow.id()), QString());
    QThread::msleep(300);
    EXPECT_EQ(row(slow.id()).status(), PlanStatus(PlanStatus::Running));
    sandbox.stopService(SIGKILL);
    ASSERT_TRUE(sandbox.startService());
    const PlanObject after = row(slow.id());
    EXPECT_EQ(after.status(), PlanStatus(PlanStatus::Idle));
    EXPECT_EQ(after.lastRunStatus(), PlanResult(PlanResult::Interrupted));
}

// The scheduler on the service's clock, which the test moves: a plan runs
// when the clock passes its time; after a stop, a plan that runs missed runs
// does so at start-up and one that does not waits.
TEST(PlanSchedule, PlansRunWhenTheClockPassesTheirTime)
{
    Sandbox sandbox;
    sandbox.writeFile(QStringLiteral("clock"), "0");
    QProcessEnvironment environment;
    environment.insert(QStringLiteral("ORV_TEST_CLOCK_FILE"),
                       sandbox.path(QStringLiteral("clock")));
    sandbox.setServiceEnvironment(environment);
    ASSERT_TRUE(sandbox.startService());
    sandbox.writeFile(QStringLiteral("source/a.txt"), "scheduled");
    const QUuid account = Plans::addFolderAccount(sandbox);

    const QDateTime now = QDateTime::currentDateTime();
    auto plan = [&](const char* name, int hours, bool missed) {
        Orv::Info::Plan::BackupFile p;
        p.setId(QUuid::createUuid());
        p.setName(QLatin1String(name));
        p.setStorage(account);
        p.setAccountId(account);
        p.setIsArchive(true);
        p.setItems({sandbox.path(QStringLiteral("source"))});
        p.setRunMissedPlan(missed);
        p.schedule().setEnable(true);
        p.schedule().setType(Orv::Info::Plan::Schedule::Type::SpecificDate);
        p.schedule().setSpecificDate(now.addSecs(hours * 3600));
        ServiceRawClient client(sandbox.socketPath());
        const auto reply = client.call(QLatin1String(Format::Plan::CommonEdit::Name),
                                       {{QLatin1String(Format::Plan::CommonEdit::Request::PlanXml),
                                         p.toXml(Orv::Info::Plan::Base::SecretForm::Plain)}});
        EXPECT_TRUE(reply && reply->value(QLatin1String(Format::Header::Status::Key)) == "success");
        return p.id();
    };
    const QUuid soon = plan("Soon", 3, false);
    const QUuid missed = plan("Missed", 5, true);
    const QUuid waits = plan("Waits", 5, false);
    auto lastRun = [&](const QUuid& id) { return Plans::planRow(sandbox, id); };
    auto waitForRun = [&](const QUuid& id) {
        const QDeadlineTimer deadline(20000);
        while (!deadline.hasExpired() &&
               lastRun(id).lastRunStatus() == PlanResult(PlanResult::NeverRun))
            QThread::msleep(50);
        return lastRun(id);
    };

    EXPECT_TRUE(lastRun(soon).schedule().startsWith("Next run"))
        << lastRun(soon).schedule().toStdString();
    QThread::msleep(500);
    EXPECT_FALSE(lastRun(soon).lastRunTime().isValid());
    sandbox.writeFile(QStringLiteral("clock"), QByteArray::number(3 * 3600 + 60));
    EXPECT_EQ(waitForRun(soon).lastRunStatus(), PlanResult(PlanResult::Success));
    EXPECT_EQ(lastRun(soon).schedule(), QStringLiteral("Not scheduled"));

    EXPECT_EQ(sandbox.stopService(), 0);
    sandbox.writeFile(QStringLiteral("clock"), QByteArray::number(6 * 3600));
    ASSERT_TRUE(sandbox.startService());
    EXPECT_EQ(waitForRun(missed).lastRunStatus(), PlanResult(PlanResult::Success));
    EXPECT_FALSE(lastRun(waits).lastRunTime().isValid());
}

// Plans that cannot be saved change nothing.
TEST_F(PlanRuns, BadPlansAreRefused)
{
    Orv::Info::Plan::BackupFile orphan = backupPlan(QStringLiteral("Orphan"));
    orphan.setStorage(QUuid::createUuid());
    EXPECT_TRUE(save(orphan).contains("does not exist"));
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::CommonEdit::Name),
                                   {{QLatin1String(Format::Plan::CommonEdit::Request::PlanXml),
                                     QStringLiteral("<Plan Version=\"99\"/>")}});
    ASSERT_TRUE(reply);
    EXPECT_TRUE(reply->value(QLatin1String(Format::Header::Status::ErrorString))
                    .toString()
                    .startsWith("The plan cannot be read"));
    EXPECT_TRUE(
        QDir(sandbox.path(QStringLiteral("config/plans"))).entryList(QDir::Files).isEmpty());
}
