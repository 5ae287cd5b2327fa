#include "TemporaryInstance.h"
#include "orvCommon/LocalSecret.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/Plan/RestoreFile.h"
#include "orvInfo/PlanObject.h"
#include "support/QtPrinters.h"

#include <QDebug>
#include <gtest/gtest.h>
#include <type_traits>

using namespace Orv::Info::Plan;
using Orv::Info::PlanObject;

namespace {

template <typename T> QString show(const T& value)
{
    if constexpr (std::is_enum_v<T>) {
        return QString::number(int(value));
    } else {
        QString text;
        QDebug(&text).nospace() << value;
        return text;
    }
}

// Every accessor of the plan as "name=value" lines, so that two plans compare
// field by field and a failure names the field.
#define FIELD(expr) lines.append(QStringLiteral(#expr "=") + show(expr))

void scheduleFields(QStringList& lines, const QString& which, const Schedule& s)
{
    QStringList own;
    {
        QStringList& lines = own;
        FIELD(s.isEnable());
        FIELD(s.type());
        FIELD(s.specificDate());
        FIELD(s.frequencyType());
        FIELD(s.dailyRecurrence());
        FIELD(s.occursAt());
        FIELD(s.occursEvery().minutes());
        FIELD(s.occursEvery().fromTime());
        FIELD(s.occursEvery().toTime());
        FIELD(s.weeklyFrequency());
        FIELD(s.monthlyFrequency().weekNumber);
        FIELD(s.monthlyFrequency().dayOfWeek);
        FIELD(s.dayOfMonthFrequency());
        FIELD(s.monthRepeat());
        FIELD(s.monthRepeatFrom());
        FIELD(s.stopAfter());
    }
    for (const QString& line : own)
        lines.append(which + QLatin1Char('.') + line);
}

QStringList fields(const Base& p)
{
    QStringList lines;
    FIELD(p.id());
    FIELD(p.name());
    FIELD(p.storage());
    FIELD(p.accountId());
    FIELD(p.isArchive());
    FIELD(p.runMuissedPlan());
    FIELD(p.syncBeforeRun());
    FIELD(p.useConsistencyCheck());
    scheduleFields(lines, QStringLiteral("schedule"), p.schedule());
    FIELD(p.notification().type());
    FIELD(p.notification().subject());
    FIELD(p.notification().generateDetailedReport());
    if (const auto* b = dynamic_cast<const BackupFile*>(&p)) {
        FIELD(b->useCompression());
        FIELD(b->useDifferentialUpload());
        FIELD(b->savePlanInCloud());
        scheduleFields(lines, QStringLiteral("full"), b->forceFullSchedule());
        FIELD(b->encryption().isEnabled());
        FIELD(b->encryption().encryptionType());
        FIELD(b->encryption().password());
        FIELD(b->encryption().hint());
        const Backup::RetentionPolicy& r = b->retentionPolicy();
        FIELD(r.type());
        FIELD(r.useDeleteOlder());
        FIELD(r.deleteFileAge().count());
        FIELD(r.deleteFileAge().unit());
        FIELD(r.useBackupDate());
        FIELD(r.useKeepLastVersion());
        FIELD(r.useKeepVersion());
        FIELD(r.keepVersion());
        FIELD(r.useDeleteLocaly());
        FIELD(r.deleteLocalyAfter());
        FIELD(b->storageInfo().useS3Accelerated());
        FIELD(b->storageInfo().storageClassAmazonS3());
        FIELD(b->storageInfo().storageClassAzureBlob());
        FIELD(b->storageInfo().useSSE());
        FIELD(b->actions().pre().isEnabled());
        FIELD(b->actions().pre().program());
        FIELD(b->actions().pre().terminateOnFailure());
        FIELD(b->actions().post().isEnabled());
        FIELD(b->actions().post().program());
        FIELD(b->actions().post().runOnBackupFailure());
        FIELD(b->items());
        FIELD(b->excludeItems());
        FIELD(b->excludeFolderList());
        FIELD(b->filter());
        FIELD(b->filterType());
        FIELD(b->excludeSystemAndHidden());
        FIELD(b->skipInUseFiles());
        FIELD(b->backupEmptyFolders());
    }
    if (const auto* r = dynamic_cast<const RestoreFile*>(&p)) {
        FIELD(r->restoreType());
        FIELD(r->pointInTime());
        FIELD(r->restorePoint());
        FIELD(r->deletePlan());
        FIELD(r->useEncryption());
        FIELD(r->encryptionPassword());
        FIELD(r->storageInfo().useS3Accelerated());
        FIELD(r->storageInfo().type());
        FIELD(r->restoreItems());
        FIELD(r->destination());
        FIELD(r->restoreToOriginalLocation());
        FIELD(r->onlyNewFiles());
        FIELD(r->skipExistingFiles());
        FIELD(r->restoreDeletedFiles());
    }
    return lines;
}

#undef FIELD

// Texts XML cannot carry as they are, or that parsers change.
const QString kOddName =
    QStringLiteral("Nightly \"docs\" <&> \u00fcn\u00ef\ttab\r\nline \U0001F600");
const QStringList kOddItems{QStringLiteral("/home/a b/c"), QStringLiteral("  padded  "),
                            QStringLiteral("   "), QString(), QStringLiteral("bell\x07")};

void fillSchedule(Schedule& s, int shift)
{
    s.setEnable(true);
    s.setType(Schedule::Type::Recurring);
    s.setSpecificDate(QDateTime(QDate(2024, 2, 29), QTime(23, 59, 58, 123 + shift)));
    s.setFrequencyType(Schedule::FrequencyType::DayOfMonth);
    s.setDailyRecurrence(true);
    s.setOccursAt(QTime(14, 5 + shift));
    s.setOccursEvery(Schedule::OccursEvery(15 + shift, QTime(8, 30), QTime(18, 45)));
    QBitArray days(7);
    days.setBit(1);
    days.setBit(6);
    s.setWeeklyFrequency(days);
    s.setMonthlyFrequency(Schedule::WeekNumber::Penultimate, Qt::Friday);
    s.setDayOfMonthFrequency(31);
    s.setMonthRepeat(3 + shift, QDate(2024, 1, 31));
    s.setStopAfter(quint64(99) * 3600000 + 59 * 60000);
}

// Every field common to both kinds, away from its default.
void fillBase(Base& p, const QString& name, int scheduleShift, Notification::Type notification,
              const QString& subject)
{
    p.setName(name);
    p.setStorage(QUuid::createUuid());
    p.setAccountId(QUuid::createUuid());
    p.setIsArchive(true);
    p.setRunMissedPlan(true);
    p.setSyncBeforeRun(true);
    p.setUseConsistencyCheck(false);
    fillSchedule(p.schedule(), scheduleShift);
    p.notification().setType(notification);
    p.notification().setSubject(subject);
    p.notification().setGenerateDetailedReport(true);
}

BackupFile fullBackup()
{
    BackupFile p;
    fillBase(p, kOddName, 0, Notification::Type::On,
             QStringLiteral("%PLAN_NAME% on %COMPUTER_NAME%: %RESULT%"));
    p.setUseCompression(false);
    p.setUseDifferentialUpload(true);
    p.setSavePlanInCloud(false);
    fillSchedule(p.forceFullSchedule(), 1);
    p.encryption().setEnabled(true);
    p.encryption().setEncryptionType(Backup::Encyption::AES192);
    p.encryption().setPassword(QStringLiteral("s3cr\u00e9t pass"));
    p.encryption().setHint(QByteArray("aGludA=="));
    Backup::RetentionPolicy& r = p.retentionPolicy();
    r.setType(Backup::RetentionPolicy::Type::Custom);
    r.setUseDeleteOlder(true);
    r.setDeleteFileAge({12, Backup::RetentionPolicy::FileAge::Unit::Year});
    r.setUseBackupDate(true);
    r.setUseKeepLastVersion(false);
    r.setUseKeepVersion(true);
    r.setKeepVersion(7);
    r.setUseDeleteLocaly(true);
    r.setDeleteLocalyAfter(99999);
    p.storageInfo().setUseS3Accelerated(true);
    p.storageInfo().setStorageClassAmazonS3(Backup::StorageInfo::AmazonS3StorageClass::GlacierIR);
    p.storageInfo().setStorageClassAzureBlob(Backup::StorageInfo::AzureBlobStorageClass::Archive);
    p.storageInfo().setUseSSE(true);
    p.actions().pre().setEnabled(true);
    p.actions().pre().setProgram(QStringLiteral("\"/usr/bin/dump db\" --all"));
    p.actions().pre().setTerminateOnFailure(false);
    p.actions().post().setEnabled(true);
    p.actions().post().setProgram(QStringLiteral("\"/bin/true\""));
    p.actions().post().setRunOnBackupFailure(true);
    p.setItems(kOddItems);
    p.setExcludeItems({QStringLiteral("/home/a b/c/tmp")});
    p.setExcludeFolderList({QStringLiteral("abc*"), QStringLiteral("xyz*")});
    p.setFilter({QStringLiteral("*.bak"), QStringLiteral("*.tmp")});
    p.setFilterType(BackupFile::FilterType::SkipMatching);
    p.setExcludeSystemAndHidden(false);
    p.setSkipInUseFiles(true);
    p.setBackupEmptyFolders(true);
    return p;
}

RestoreFile fullRestore()
{
    RestoreFile p;
    fillBase(p, QStringLiteral("Restore once"), 2, Notification::Type::Off,
             QStringLiteral("restore"));
    p.setRestoreType(Restore::RestoreType::PointInTime);
    p.setPointInTime(QDateTime(QDate(1999, 12, 31), QTime(23, 59), Qt::UTC));
    p.setRestorePoint(QStringLiteral("2024-03-01T10:00:00Z"));
    p.setDeletePlan(Restore::DeleteType::OnSucceeds);
    p.setUseEncryption(true);
    p.setEncryptionPassword(QStringLiteral("decrypt me"));
    p.storageInfo().setUseS3Accelerated(true);
    p.storageInfo().setType(Restore::StorageInfo::Type::Expedited);
    p.setRestoreItems(kOddItems);
    p.setDestination(QStringLiteral("/srv/restored"));
    p.setRestoreToOriginalLocation(false);
    p.setOnlyNewFiles(true);
    p.setSkipExistingFiles(false);
    p.setRestoreDeletedFiles(false);
    return p;
}

} // namespace

// Every field of both plan kinds survives the stored form and the form sent
// to the service; passwords never appear in clear in the stored or the
// displayed form, and the displayed form cannot be loaded.
TEST(PlanModel, EveryFieldRoundTripsAndPasswordsStaySealed)
{
    TemporaryInstance instance;
    const BackupFile backup = fullBackup();
    const RestoreFile restore = fullRestore();
    const struct
    {
        const Base* plan;
        QStringList defaults;
        QString password;
    } rows[] = {
        {&backup, fields(BackupFile()), backup.encryption().password()},
        {&restore, fields(RestoreFile()), restore.encryptionPassword()},
    };
    for (const auto& row : rows) {
        const QStringList expected = fields(*row.plan);
        ASSERT_EQ(expected.size(), row.defaults.size());
        for (int i = 0; i < expected.size(); ++i)
            EXPECT_NE(expected[i], row.defaults[i]) << "the test leaves a field at its default";

        for (const auto form : {Base::SecretForm::Sealed, Base::SecretForm::Plain}) {
            QString error;
            const QString xml = row.plan->toXml(form, &error);
            ASSERT_FALSE(xml.isEmpty()) << error.toStdString();
            EXPECT_EQ(xml.contains(row.password), form == Base::SecretForm::Plain);
            const QSharedPointer<Base> read = Factory::create(xml, &error);
            ASSERT_TRUE(read) << error.toStdString() << "\n" << xml.toStdString();
            EXPECT_EQ(fields(*read), expected) << xml.toStdString();
            EXPECT_EQ(read->type(), row.plan->type());
            EXPECT_EQ(read->subtype(), PlanSubtype::File);

            // The plan list reads the same file without the plan library.
            const PlanObject listed = PlanObject::fromPlanXml(xml.toUtf8(), &error);
            EXPECT_EQ(listed.id(), row.plan->id());
            EXPECT_EQ(listed.storage(), row.plan->storage());
            EXPECT_EQ(listed.typeName(), row.plan->type().toString());
        }

        const QString masked = row.plan->toXml(Base::SecretForm::Masked);
        EXPECT_TRUE(masked.contains(QLatin1String(">****<"))) << masked.toStdString();
        EXPECT_FALSE(masked.contains(row.password));
        QString error;
        EXPECT_FALSE(Factory::create(masked, &error));
        EXPECT_TRUE(error.contains(QLatin1String("masked"))) << error.toStdString();
    }
    // The name XML attributes cannot carry reaches the plan list readable.
    QString error;
    EXPECT_EQ(PlanObject::fromPlanXml(backup.toXml().toUtf8(), &error).displayName(),
              QStringLiteral("Nightly \"docs\" <&> \u00fcn\u00ef tab  line \U0001F600"));
}

// Where the local key cannot be read, a stored password is kept sealed and
// carried back as it was, so that an edit made there does not lose it.
TEST(PlanModel, UnopenedPasswordTravelsBackUnchanged)
{
    TemporaryInstance service;
    const BackupFile original = fullBackup();
    const QString stored = original.toXml();

    QString carried;
    {
        TemporaryInstance elsewhere;
        const auto read = Factory::create(stored).dynamicCast<BackupFile>();
        ASSERT_TRUE(read);
        EXPECT_TRUE(Orv::Common::LocalSecret::isEncrypted(read->encryption().password()));
        read->setName(QStringLiteral("renamed"));
        carried = read->toXml(Base::SecretForm::Plain);
    }
    const auto back = Factory::create(carried).dynamicCast<BackupFile>();
    ASSERT_TRUE(back);
    EXPECT_EQ(back->name(), QStringLiteral("renamed"));
    EXPECT_EQ(back->encryption().password(), original.encryption().password());
}

TEST(PlanModel, DamagedDocumentsAreRefusedWithTheReason)
{
    TemporaryInstance instance;
    const QString id = QStringLiteral("ID=\"{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}\"");
    // A plan document with the identity above and the rest as given.
    const auto plan = [&id](const char* rest) {
        return QStringLiteral("<Plan ") + id + QString::fromUtf8(rest);
    };
    const struct
    {
        QString xml;
        QString reason; // empty: accepted
    } rows[] = {
        {QString(), QStringLiteral("not well-formed")},
        {plan(""), QStringLiteral("not well-formed")},
        {QStringLiteral("\xff\xfe<Plan/>"), QStringLiteral("not well-formed")},
        {QStringLiteral("<Account ") + id + QStringLiteral("/>"), QStringLiteral("not <Plan>")},
        {QStringLiteral("<Plan Type=\"Backup\"/>"), QStringLiteral("ID \"\" is not a UUID")},
        {QStringLiteral("<Plan ID=\"7\" Type=\"Backup\"/>"), QStringLiteral("is not a UUID")},
        {plan(" Type=\"Backup\" Storage=\"x\"/>"), QStringLiteral("Storage \"x\"")},
        {plan(" Type=\"Sync\"/>"), QStringLiteral("not supported")},
        {plan(" Type=\"Backup\" Subtype=\"DiskImage\"/>"), QStringLiteral("not supported")},
        {plan(" Type=\"Backup\" Version=\"2\"/>"), QStringLiteral("newer version")},
        {plan(" Type=\"Backup\" Version=\"x\"/>"), QStringLiteral("version \"x\"")},
        {plan(" Type=\"Backup\"><IsArchive>yes</IsArchive></Plan>"),
         QStringLiteral("<IsArchive> at line 1: \"yes\" is not true or false")},
        {plan(" Type=\"Backup\"><Schedule><DayOfMonth>3x</DayOfMonth></Schedule></Plan>"),
         QStringLiteral("<DayOfMonth>")},
        {plan(" Type=\"Backup\"><FilterType>Skip</FilterType></Plan>"),
         QStringLiteral("one of backup, skip, all")},
        {plan(" Type=\"Restore\"><PointInTime>yesterday</PointInTime></Plan>"),
         QStringLiteral("<PointInTime>")},
        {plan(" Type=\"Backup\"><Encryption><Algorithm>4</Algorithm></Encryption></Plan>"),
         QStringLiteral("unknown algorithm 4")},
        {plan(" Type=\"Backup\"><Encryption><Password Form=\"sealed\">x</Password>"
              "</Encryption></Plan>"),
         QStringLiteral("sealed password is damaged")},
        {plan(" Type=\"Restore\"><Password>x</Password></Plan>"),
         QStringLiteral("unknown password form")},
        {plan(" Type=\"Backup\"><Items><Item Encoding=\"base64\">*</Item></Items></Plan>"),
         QStringLiteral("not Base64")},
        // What the service's catalog held before plans had bodies, and what a
        // later revision may add, load with the defaults.
        {plan(" Name=\"Daily\" Type=\"Restore\"/>"), QString()},
        {plan(" Type=\"Backup\" Version=\"1\"><Future a=\"1\"><IsArchive>x</IsArchive>"
              "</Future><IsArchive>true</IsArchive></Plan>"),
         QString()},
    };
    for (const auto& row : rows) {
        QString error;
        const QSharedPointer<Base> plan = Factory::create(row.xml, &error);
        if (row.reason.isEmpty()) {
            EXPECT_TRUE(plan) << row.xml.toStdString() << ": " << error.toStdString();
            continue;
        }
        EXPECT_FALSE(plan) << row.xml.toStdString();
        EXPECT_TRUE(error.contains(row.reason))
            << row.xml.toStdString() << "\n  gave: " << error.toStdString();
    }
    const auto future = Factory::create(rows[std::size(rows) - 1].xml);
    ASSERT_TRUE(future);
    EXPECT_TRUE(future->isArchive());
}

// The words the command line accepts, in the order it offers them.
TEST(PlanModel, WordTablesHoldExactlyTheAcceptedWords)
{
    const struct
    {
        QStringList words;
        QString expected;
    } rows[] = {
        {Base::formatWords().words(), QStringLiteral("cbf nbf")},
        {Backup::RetentionPolicy::words().words(), QStringLiteral("Default Custom")},
        {BackupFile::filterWords().words(), QStringLiteral("backup skip all")},
        {Backup::StorageInfo::amazonS3Words().words(),
         QStringLiteral("Standard StandardIA OneZoneIA Glacier Intelligent DeepArchive GlacierIR")},
        {Backup::StorageInfo::azureBlobWords().words(), QStringLiteral("hot cool archive")},
        {Restore::StorageInfo::words().words(), QStringLiteral("Skip Standard Bulk Expedited")},
        {Schedule::frequencyWords().words(), QStringLiteral("Daily Weekly Monthly DayOfMonth")},
        {Backup::RetentionPolicy::FileAge::words().words(), QStringLiteral("Day Week Month Year")},
        {Backup::Encyption::words().words(), QStringLiteral("aes-128 aes-192 aes-256")},
        {Notification::words().words(), QStringLiteral("on off error-only")},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.words.join(QLatin1Char(' ')), row.expected);
    EXPECT_FALSE(Backup::StorageInfo::azureBlobWords().value(QStringLiteral("Hot")));
    EXPECT_EQ(int(*Backup::RetentionPolicy::FileAge::words().value(QStringLiteral("Year"))), 3);
    EXPECT_EQ(Schedule::WeekNumberString(Schedule::WeekNumber::Penultimate),
              QStringLiteral("Penultimate"));
    EXPECT_EQ(Backup::Encyption::encryprtionAlgorithmToString(Backup::Encyption::Undefined),
              QStringLiteral("Undefined"));
}

TEST(PlanModel, StopAfterSplitsIntoHoursAndMinutes)
{
    Schedule schedule;
    EXPECT_FALSE(schedule.isStopAfterEnabled());
    schedule.setStopAfter(quint64(99) * 3600000 + 59 * 60000 + 59999);
    EXPECT_TRUE(schedule.isStopAfterEnabled());
    EXPECT_EQ(schedule.stopAfterHours(), 99u);
    EXPECT_EQ(schedule.stopAfterMinutes(), 59);
    schedule.setWeeklyFrequency(QBitArray(3, true));
    EXPECT_EQ(schedule.weeklyFrequency().size(), 7);
}

TEST(PlanModel, PlanRowCarriesTheLastRunAndReadsOlderRows)
{
    PlanObject plan = PlanObject::fromRow(
        {{"ID", "{6c1f7a52-0b7e-4a8e-9d3c-2f1e5a7b9c01}"}, {"Name", "Daily"}, {"Type", "Restore"}});
    EXPECT_EQ(plan.status(), PlanStatus(PlanStatus::Idle));
    EXPECT_EQ(plan.lastRunStatus().displayName(), QStringLiteral("Never run"));
    EXPECT_FALSE(plan.lastRunTime().isValid());
    EXPECT_EQ(plan.type(), PlanType(PlanType::Restore));

    plan.setStatus(PlanStatus::Stopping);
    plan.setSchedule(QStringLiteral("Daily at 10:00"));
    plan.setLastRunTime(QDateTime(QDate(2024, 3, 31), QTime(2, 30, 0, 7)));
    plan.setLastRunStatus(PlanResult(PlanResult::Interrupted));
    plan.setLastRunMessage(QStringLiteral("orvd stopped during the run"));
    plan.setLastDuration(86400000);
    plan.setLastFileCount(3);
    plan.setLastFileSize(qint64(1) << 52);
    plan.setLastUploadedCount(2);
    plan.setLastFailedCount(1);
    plan.setLastProgressSteps(QStringLiteral("Upload: 40%"));
    const PlanObject back = PlanObject::fromRow(plan.toRow());
    EXPECT_EQ(back.toRow(), plan.toRow());
    EXPECT_TRUE(back.status().isRunning());
    EXPECT_EQ(back.lastRunTime(), plan.lastRunTime());
    EXPECT_EQ(back.lastFileSize(), qint64(1) << 52);
    EXPECT_TRUE(back.lastRunStatus().isFailure());

    // Numbers a later service may send read as unknown, not as something else.
    EXPECT_EQ(PlanStatus::fromInt(9).toString(), QStringLiteral("Unknown"));
    EXPECT_EQ(PlanResult(-7).displayName(), QStringLiteral("Unknown"));
}
