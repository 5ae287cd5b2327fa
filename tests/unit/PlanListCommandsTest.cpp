// The plan commands that act on existing plans (list, details, start, stop,
// delete) against a service made up in the test process: it answers with
// rows written by the plan library and records what the commands ask for,
// and can refuse, answer in the wrong form or ask to try later.

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/RestoreFile.h"
#include "orvInfo/PlanObject.h"
#include "unit/InProcessService.h"

#include <QBitArray>
#include <QJsonArray>

using namespace Orv::Service;
namespace Format = Orv::Common::Communication::Commands::Format;
namespace V2Plan = Orv::Common::Communication::V2::Plan;
using namespace Orv::Info::Plan;

namespace {

const QUuid kAmazon(QStringLiteral("{6d1e0c2a-8b3f-4a5d-9e7c-1f2a3b4c5d6e}"));
const QUuid kNightly(QStringLiteral("{11111111-2222-4333-8444-555555555501}"));
const QUuid kRestore(QStringLiteral("{11111111-2222-4333-8444-555555555502}"));
const QUuid kBlock(QStringLiteral("{11111111-2222-4333-8444-555555555503}"));
const QUuid kBusy(QStringLiteral("{11111111-2222-4333-8444-555555555504}"));
const QUuid kRefused(QStringLiteral("{11111111-2222-4333-8444-555555555505}"));

// What the service was asked to do, one word per request: "start <id> full".
using Requests = QStringList;

QString id(const QUuid& uuid)
{
    return uuid.toString();
}

QDateTime local(int year, int month, int day, int hour, int minute, int second = 0)
{
    return QDateTime(QDate(year, month, day), QTime(hour, minute, second), Qt::LocalTime);
}

// A nightly backup with something in every field the summary shows.
BackupFile nightly()
{
    BackupFile plan;
    plan.setId(kNightly);
    plan.setName(QStringLiteral("Nightly"));
    plan.setStorage(kAmazon);
    plan.setRunMissedPlan(true);
    plan.setItems({QStringLiteral("/home/ann/docs"), QStringLiteral("/etc")});
    plan.setExcludeItems({QStringLiteral("/home/ann/docs/tmp")});
    plan.setExcludeFolderList({QStringLiteral(".cache")});
    plan.setFilter({QStringLiteral("*.tmp"), QStringLiteral("*.bak")});
    plan.setFilterType(BackupFile::FilterType::SkipMatching);
    plan.encryption().setEnabled(true);
    plan.encryption().setPassword(QStringLiteral("s3cret-backup"));
    plan.storageInfo().setStorageClassAmazonS3(
        BackupFile::StorageInfo::AmazonS3StorageClass::StandardIA);
    plan.storageInfo().setUseSSE(true);
    Schedule& schedule = plan.schedule();
    schedule.setEnable(true);
    schedule.setType(Schedule::Type::Recurring);
    schedule.setFrequencyType(Schedule::FrequencyType::Weekly);
    QBitArray days(7);
    days.setBit(0);
    days.setBit(4);
    schedule.setWeeklyFrequency(days);
    schedule.setOccursAt(QTime(22, 30));
    schedule.setStopAfter(9000000);
    Schedule& full = plan.forceFullSchedule();
    full.setEnable(true);
    full.setType(Schedule::Type::Recurring);
    full.setFrequencyType(Schedule::FrequencyType::Monthly);
    full.setMonthlyFrequency(Schedule::WeekNumber::Last, Qt::Friday);
    full.setDailyRecurrence(true);
    full.setOccursEvery(Schedule::OccursEvery(30, QTime(8, 0), QTime(18, 0)));
    plan.actions().pre().setEnabled(true);
    plan.actions().pre().setProgram(QStringLiteral("\"/usr/local/bin/dump-db\" --all"));
    return plan;
}

RestoreFile restoreDocs()
{
    RestoreFile plan;
    plan.setId(kRestore);
    plan.setName(QStringLiteral("Restore docs"));
    plan.setStorage(kAmazon);
    plan.setRestoreItems({QStringLiteral("/home/ann/docs/report.odt")});
    plan.setRestoreType(Restore::RestoreType::PointInTime);
    plan.setPointInTime(local(2026, 3, 1, 12, 0));
    plan.setRestoreToOriginalLocation(false);
    plan.setDestination(QStringLiteral("/tmp/restored"));
    plan.setEncryptionPassword(QStringLiteral("s3cret-restore"));
    plan.setSkipExistingFiles(false);
    plan.schedule().setEnable(true);
    plan.schedule().setType(Schedule::Type::SpecificDate);
    plan.schedule().setSpecificDate(local(2026, 3, 20, 8, 0));
    return plan;
}

BackupFile backup(const QUuid& uuid, const QString& name, bool archive, bool blockLevel)
{
    BackupFile plan;
    plan.setId(uuid);
    plan.setName(name);
    plan.setIsArchive(archive);
    plan.setUseDifferentialUpload(blockLevel);
    return plan;
}

Orv::Info::PlanObject listed(const Base& plan, PlanStatus status = PlanStatus::Idle)
{
    QString error;
    Orv::Info::PlanObject row = Orv::Info::PlanObject::fromPlanXml(plan.toXml().toUtf8(), &error);
    row.setStatus(status);
    return row;
}

class PlanListCommands : public InProcessService
{
protected:
    void SetUp() override
    {
        InProcessService::SetUp();
        Orv::Info::PlanObject ran = listed(nightly());
        ran.setSchedule(QStringLiteral("Next run 16.03.2026 22:30"));
        ran.setLastRunTime(local(2026, 3, 14, 9, 26, 53));
        ran.setLastRunStatus(PlanResult(PlanResult::Warning));
        ran.setLastRunMessage(QStringLiteral("2 files were skipped"));
        ran.setLastDuration(3725000);
        ran.setLastFileCount(1234);
        ran.setLastFileSize(1572864);
        ran.setLastUploadedCount(1200);
        ran.setLastFailedCount(2);
        ran.setLastProgressSteps(QStringLiteral("Scanning: done\nUploading: 100%"));
        rows = QJsonArray{
            ran.toRow(),
            listed(restoreDocs()).toRow(),
            listed(backup(kBlock, QStringLiteral("Block"), false, true)).toRow(),
            listed(backup(kBusy, QStringLiteral("Busy"), true, false), PlanStatus::Running).toRow(),
            listed(backup(kRefused, QStringLiteral("Refused"), true, false)).toRow(),
            listed(backup(QUuid::createUuid(), QStringLiteral("Twin"), true, false)).toRow(),
            listed(backup(QUuid::createUuid(), QStringLiteral("Twin"), true, false)).toRow(),
        };
        registry.addTyped<V2Plan::GetPlanList>(
            [this](const V2Plan::GetPlanList::Request&, const RequestContext&) {
                ++listRequests;
                if (listTryLater > 0 && listTryLater-- > 0)
                    return TypedOutcome::tryLater();
                if (listInWrongForm)
                    return TypedOutcome::done(V2Plan::EmptyResponse());
                V2Plan::GetPlanList::Response response;
                response.setPlanList(rows);
                return TypedOutcome::done(response);
            });
        registry.addNamed(
            Format::Storage::GetConnection::Name, [](const QJsonObject&, const RequestContext&) {
                const QJsonObject amazon{
                    {"DisplayName", "Offsite"}, {"ID", kAmazon.toString()}, {"Type", 2}};
                return NamedOutcome::success(
                    {{Format::Storage::GetConnection::Reply::Key, QJsonArray{amazon}}});
            });
        registry.addTyped<V2Plan::StartPlan>(
            [this](const V2Plan::StartPlan::Request& request, const RequestContext&) {
                return record(QStringLiteral("start %1 %2")
                                  .arg(id(request.planId()), request.isFull()
                                                                 ? QStringLiteral("full")
                                                                 : QStringLiteral("increment")),
                              request.planId());
            });
        registry.addTyped<V2Plan::StopPlan>(
            [this](const V2Plan::StopPlan::Request& request, const RequestContext&) {
                return record(QStringLiteral("stop ") + id(request.planId()), request.planId());
            });
        registry.addTyped<V2Plan::RemovePlan>(
            [this](const V2Plan::RemovePlan::Request& request, const RequestContext&) {
                return record(QStringLiteral("remove ") + id(request.planId()), request.planId());
            });
    }

    TypedOutcome record(const QString& request, const QUuid& plan)
    {
        if (actionTryLater > 0 && actionTryLater-- > 0)
            return TypedOutcome::tryLater();
        requests.append(request);
        if (plan == kRefused)
            return TypedOutcome::failed(QStringLiteral("The storage is offline"));
        return TypedOutcome::done(V2Plan::EmptyResponse());
    }

    Outcome run(const QStringList& words)
    {
        return InProcessService::run(QStringList{QStringLiteral("plan")} + words);
    }

    QJsonArray rows;
    Requests requests;
    int listRequests = 0;
    int listTryLater = 0;
    int actionTryLater = 0;
    bool listInWrongForm = false;
};

const QString kShortRestore = QStringLiteral("Display name: Restore docs\n"
                                             "Id: %1\n"
                                             "Type: Restore\n"
                                             "Status: Idle\n"
                                             "Last run status: Never run\n"
                                             "Last run time: Plan never run\n")
                                  .arg(id(kRestore));

} // namespace

TEST_F(PlanListCommands, ThePlanIsFoundByIdOrNameAndEveryOtherAnswerIsTold)
{
    const QString unknown = QUuid::createUuid().toString();
    const struct
    {
        QStringList words;
        int result;
        QString printed;
        // Only the beginning of what is printed is compared.
        bool prefix;
        bool asksService;
    } table[] = {
        {{"start", "--name", "Block"}, 0, "\nSuccess.\n", false, true},
        // Without braces, and "id" wins over "name" where both are allowed.
        {{"start", "--id", kBlock.toString(QUuid::WithoutBraces)}, 0, "\nSuccess.\n", false, true},
        {{"details", "--id", id(kRestore), "--name", "Nightly"}, 0, kShortRestore, true, true},
        {{"stop", "--name", "Nope"}, -1, "Unknown plan name: Nope\n", false, true},
        {{"delete", "--id", unknown}, -1, "Unknown plan ID: " + unknown + "\n", false, true},
        {{"details", "--name", "Twin"},
         -1,
         "We have two or more plans with the same names. Please use the plan id.\n\n",
         false,
         true},
        {{"start", "--id", "not-a-uuid"},
         -1,
         "Invalid format data for ID: not-a-uuid\n",
         false,
         false},
        {{"details", "--progress"}, -1, "Options [ id ] or [ name ] is mandatory\n", false, false},
        {{"delete", "--id", id(kBlock), "--name", "Block", "-c"},
         -1,
         "Parameter conflict: [ id ] and [ name ]\n",
         false,
         false},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.words.join(' ').toStdString());
        listRequests = 0;
        const Outcome outcome = run(row.words);
        EXPECT_EQ(outcome.result, row.result);
        const QByteArray expected = kBanner + row.printed.toUtf8();
        EXPECT_EQ(row.prefix ? outcome.printed.left(expected.size()) : outcome.printed, expected);
        EXPECT_EQ(listRequests > 0, row.asksService);
    }
    EXPECT_EQ(requests, Requests({"start " + id(kBlock) + " increment",
                                  "start " + id(kBlock) + " increment"}));

    // A list in a form the command cannot read.
    listInWrongForm = true;
    EXPECT_EQ(run({"stop", "--name", "Busy"}).printed,
              kBanner + "Internal error: invalid command response format\n");
}

TEST_F(PlanListCommands, ListAndDetailsPrintTheRowsAndTheSummaries)
{
    const Outcome restores = run({"list", "--restore"});
    EXPECT_EQ(restores.result, 0);
    EXPECT_EQ(restores.printed,
              kBanner + "Restore plan list\n" + kShortRestore.toUtf8() + "\n\nSuccess.\n");
    const Outcome all = run({"list"});
    EXPECT_TRUE(all.printed.startsWith(kBanner + "Plan list\nDisplay name: Nightly\n"));
    EXPECT_EQ(all.printed.count("Display name: "), rows.size());
    const Outcome backups = run({"list", "--backup"});
    EXPECT_TRUE(backups.printed.startsWith(kBanner + "Backup plan list\n"));
    EXPECT_EQ(backups.printed.count("Display name: "), rows.size() - 1);
    EXPECT_FALSE(backups.printed.contains("Restore docs"));

    const Outcome backup = run({"details", "--name", "Nightly", "--progress"});
    EXPECT_EQ(backup.result, 0);
    EXPECT_EQ(backup.printed,
              kBanner +
                  "Display name: Nightly\n"
                  "Id: " +
                  id(kNightly).toUtf8() +
                  "\n"
                  "Type: Backup\n"
                  "Status: Idle\n"
                  "Last run status: Success with warnings\n"
                  "Last run time: 14.03.2026 09:26:53\n"
                  "Last duration: 01:02:05\n"
                  "Last file count: 1234\n"
                  "Last file size: 1.50 MB (1572864 bytes)\n"
                  "Last upload count: 1200\n"
                  "Last failed count: 2\n"
                  "Last run message: 2 files were skipped\n"
                  "Progress steps: Scanning: done\n"
                  "  Uploading: 100%\n"
                  "Schedule: Next run 16.03.2026 22:30\n"
                  "\n"
                  "Name                 : Nightly\n"
                  "Type                 : Backup\n"
                  "ID                   : " +
                  id(kNightly).toUtf8() +
                  "\n"
                  "Destination ID       : " +
                  id(kAmazon).toUtf8() +
                  "\n"
                  "Destination name     : Offsite\n"
                  "Block level backup     : No\n"
                  "Backup items:\n"
                  "    /home/ann/docs\n"
                  "    /etc\n"
                  "Backup exclude items:\n"
                  "    /home/ann/docs/tmp\n"
                  "Skip folders:\n"
                  "    .cache\n"
                  "Do not Backup files of these types:\n"
                  "    *.tmp\n"
                  "    *.bak\n"
                  "Compression            : Yes\n"
                  "Do not backup hidden files : Yes\n"
                  "Backup empty folders   : No\n"
                  "Encryption             : Yes\n"
                  "Encryption algorithm   : AES-256\n"
                  "Storage class          : Standard-IA\n"
                  "Use SSE                : Yes\n"
                  "Use Amazon S3 Transfer Acceleration: No\n"
                  "Schedule               : Weekly on Monday, Friday at 22:30\n"
                  "Run missed plan        : Yes\n"
                  "Stop plan after        : 2 h 30 min\n"
                  "Schedule full backup   : Monthly on the Last Friday every 30 min "
                  "from 08:00 to 18:00\n"
                  "Stop plan after (full) : Off\n"
                  "Pre-Action : \"/usr/local/bin/dump-db\" --all\n"
                  "Terminate plan on failure: Yes\n"
                  "Post-Action : Off\n"
                  "Consistency check      : Yes\n"
                  "\nSuccess.\n");

    const Outcome restore = run({"details", "--id", id(kRestore)});
    EXPECT_EQ(restore.result, 0);
    EXPECT_EQ(restore.printed, kBanner + kShortRestore.toUtf8() +
                                   "Last duration: 00:00:00\n"
                                   "Last file count: 0\n"
                                   "Last file size: 0 bytes\n"
                                   "Last upload count: 0\n"
                                   "Last failed count: 0\n"
                                   "Last run message: \n"
                                   "Schedule: No schedule\n"
                                   "\n"
                                   "Name                 : Restore docs\n"
                                   "Type                 : Restore\n"
                                   "ID                   : " +
                                   id(kRestore).toUtf8() +
                                   "\n"
                                   "Destination ID       : " +
                                   id(kAmazon).toUtf8() +
                                   "\n"
                                   "Destination name     : Offsite\n"
                                   "Restore items:\n"
                                   "    /home/ann/docs/report.odt\n"
                                   "Restore type         : Point in time\n"
                                   "PointInTime  : 01.03.2026 12:00\n"
                                   "Restore to original location: No\n"
                                   "Restore destination  : /tmp/restored\n"
                                   "Encryption password  : Specified.\n"
                                   "Only new files       : No\n"
                                   "Skip existing files  : No\n"
                                   "Schedule             : Once at 20.03.2026 08:00\n"
                                   "Run missed plan      : No\n"
                                   "Stop plan after      : Off\n"
                                   "\nSuccess.\n");
    EXPECT_FALSE((backup.printed + restore.printed).contains("s3cret"));
}

TEST_F(PlanListCommands, StartStopAndDeleteSendOnlyWhatThePlanAllows)
{
    const struct
    {
        QStringList words;
        int result;
        QByteArray printed;
        QString request;
    } table[] = {
        {{"start", "--name", "Busy"}, -1, "Plan already running.\n\n", {}},
        {{"start", "--name", "Restore docs", "--force-full"},
         -1,
         "Unknown --force-full parameter for restore plan.\n\n",
         {}},
        {{"start", "--name", "Nightly", "--force-full"},
         -1,
         "Unknown --force-full parameter for current backup format plan (when block level - "
         "OFF).\n\n",
         {}},
        {{"start", "--name", "Block", "--force-full"},
         0,
         "\nSuccess.\n",
         "start " + id(kBlock) + " full"},
        {{"start", "--name", "Refused", "--force-full"},
         -1,
         "The storage is offline\n",
         "start " + id(kRefused) + " full"},
        {{"start", "--id", id(kNightly)},
         0,
         "\nSuccess.\n",
         "start " + id(kNightly) + " increment"},
        {{"stop", "--name", "Nightly"}, -1, "Plan already stopped\n", {}},
        {{"stop", "--name", "Busy"}, 0, "\nSuccess.\n", "stop " + id(kBusy)},
        {{"delete", "--name", "Restore docs"},
         0,
         "Please confirm remove plan (use parameter --confirm or -c):\n" + kShortRestore.toUtf8(),
         {}},
        {{"delete", "--name", "Restore docs", "-c"}, 0, "\nSuccess.\n", "remove " + id(kRestore)},
    };
    for (const auto& row : table) {
        SCOPED_TRACE(row.words.join(' ').toStdString());
        requests.clear();
        const Outcome outcome = run(row.words);
        EXPECT_EQ(outcome.result, row.result);
        EXPECT_EQ(outcome.printed, kBanner + row.printed);
        EXPECT_EQ(requests, row.request.isEmpty() ? Requests() : Requests{row.request});
    }
}

TEST_F(PlanListCommands, AskedToTryLaterTheLookUpAndTheRequestAreSentAgain)
{
    listTryLater = 2;
    actionTryLater = 1;
    const Outcome outcome = run({"stop", "--id", id(kBusy)});
    EXPECT_EQ(outcome.result, 0);
    EXPECT_EQ(outcome.printed, kBanner + "\nSuccess.\n");
    // Twice asked to try later, then the list, then the chosen plan's row.
    EXPECT_EQ(listRequests, 4);
    EXPECT_EQ(requests, Requests{"stop " + id(kBusy)});
}
