// Which file versions the current format's retention removes: a plan's own
// policy or, when it is Default, the global settings as the store keeps them,
// weighed against each file's versions on a fixed clock.
#include "service/engine/CurrentRetention.h"

#include "TemporaryInstance.h"
#include "kelBackupFormat/Records.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/StorageConnection.h"
#include "service/jobs/RunRequest.h"

#include <functional>
#include <gtest/gtest.h>

using Orv::Info::Plan::BackupRetentionPolicy;
using Orv::Repository::StoredVersion;
using Unit = BackupRetentionPolicy::FileAge::Unit;

namespace {

const QDateTime kNow = QDateTime::fromString("2026-06-01T12:00:00Z", Qt::ISODate);

struct Version
{
    int backedUpDaysAgo;
    int modifiedDaysAgo;
    int base = -1; // the index of the full version it builds on
};

// The global settings as the settings store keeps them.
struct Globals
{
    const char* span = "10675199.02:48:05.4775807";
    const char* versions = "2147483647";
    const char* keepLast = "true";
    const char* backupDate = "false";
};

struct Row
{
    const char* name;
    Globals globals;
    std::function<void(BackupRetentionPolicy&)> plan;
    QVector<Version> versions;
    int goneDaysAgo; // -1: the file is at its source
    QVector<int> removed;
};

void custom(BackupRetentionPolicy& p)
{
    p.setType(BackupRetentionPolicy::Type::Custom);
    p.setUseKeepLastVersion(true);
}

TEST(CurrentRetention, EachKindOfPolicyRemovesWhatItShould)
{
    TemporaryInstance instance;
    const QVector<Version> three{{40, 50}, {20, 35}, {5, 6}};
    const Row rows[] = {
        {"Default, settings as installed: everything stays", {}, nullptr, three, -1, {}},
        {"Default takes the number of versions",
         {"", "2"},
         nullptr,
         {{4, 4}, {3, 3}, {2, 2}, {1, 1}},
         -1,
         {0, 1}},
        {"Default takes the age, counted from the modification",
         {"30.00:00:00"},
         nullptr,
         three,
         -1,
         {0, 1}},
        {"Default takes the age, counted from the backup",
         {"30.00:00:00", "2147483647", "true", "true"},
         nullptr,
         three,
         -1,
         {0}},
        {"Default takes keep-last off: a gone file's last version ages",
         {"3.00:00:00", "2147483647", "false"},
         nullptr,
         three,
         4,
         {0, 1, 2}},
        {"Custom ignores the settings", {"1.00:00:00", "1"}, custom, three, -1, {}},
        {"Custom keeps a number of versions",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseKeepVersion(true);
             p.setKeepVersion(2);
         },
         {{4, 4}, {3, 3}, {2, 2}, {1, 1}},
         -1,
         {0, 1}},
        {"Custom age in weeks from the backup date",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseDeleteOlder(true);
             p.setDeleteFileAge({2, Unit::Week});
             p.setUseBackupDate(true);
         },
         {{20, 1}, {10, 1}, {1, 1}},
         -1,
         {0}},
        {"Custom age in months from the modification date",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseDeleteOlder(true);
             p.setDeleteFileAge({1, Unit::Month});
         },
         {{2, 40}, {1, 25}},
         -1,
         {0}},
        {"The newest version of a file at its source outlives its age",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseKeepLastVersion(false);
             p.setUseDeleteOlder(true);
             p.setDeleteFileAge({1, Unit::Day});
         },
         three,
         -1,
         {0, 1}},
        {"Keep-last keeps a gone file's last version",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseDeleteOlder(true);
             p.setDeleteFileAge({1, Unit::Day});
         },
         three,
         3,
         {0, 1}},
        {"A file gone for less than the delay stays whole",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseDeleteLocaly(true);
             p.setDeleteLocalyAfter(10);
         },
         three,
         9,
         {}},
        {"A file gone for the delay loses every version, its last included",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseDeleteLocaly(true);
             p.setDeleteLocalyAfter(10);
         },
         three,
         10,
         {0, 1, 2}},
        {"Default keeps the plan's own choice for gone files",
         {},
         [](BackupRetentionPolicy& p) {
             p.setUseDeleteLocaly(true);
             p.setDeleteLocalyAfter(0);
         },
         three,
         0,
         {0, 1, 2}},
        {"A kept version keeps the full version it builds on",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseKeepVersion(true);
             p.setKeepVersion(1);
         },
         {{30, 30}, {20, 20}, {10, 10, 0}},
         -1,
         {1}},
        {"A removed version does not keep its base",
         {},
         [](BackupRetentionPolicy& p) {
             custom(p);
             p.setUseKeepVersion(true);
             p.setKeepVersion(1);
         },
         {{30, 30}, {20, 20, 0}, {10, 10}},
         -1,
         {0, 1}},
    };
    Orv::DefaultSettings* store = Orv::DefaultSettings::instance();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        ASSERT_TRUE(store->setSerializationSupportRetentionTime(
            QLatin1String(*row.globals.span ? row.globals.span : Globals().span)));
        ASSERT_TRUE(store->setRetentionNumberOfVersions(QLatin1String(row.globals.versions)));
        ASSERT_TRUE(store->setRetentionDeleteLastVersion(QLatin1String(row.globals.keepLast)));
        ASSERT_TRUE(store->setRetentionUseBackupDate(QLatin1String(row.globals.backupDate)));
        BackupRetentionPolicy policy;
        if (row.plan) {
            row.plan(policy);
        }
        const auto kept =
            Orv::Service::versionRetention(policy, Orv::Service::RunSettings::current());

        QVector<StoredVersion> versions;
        for (const Version& v : row.versions) {
            StoredVersion stored;
            stored.run = Kel::Archive::Layout::newId(kNow.addDays(-v.backedUpDaysAgo));
            stored.mtimeNs = kNow.addDays(-v.modifiedDaysAgo).toMSecsSinceEpoch() * 1000000;
            stored.base = v.base < 0 ? QString() : versions.at(v.base).run;
            versions.append(stored);
        }
        const QDateTime gone = row.goneDaysAgo < 0 ? QDateTime() : kNow.addDays(-row.goneDaysAgo);
        EXPECT_EQ(Orv::Engine::versionsToRemove(versions, gone, kept, kNow), row.removed);
    }
}

// What a run of a plan of the current format is told: its retention, no
// word that retention is missing, and the plan to save beside the data with
// no password in it, or nothing when the plan does not save itself.
TEST(CurrentRetention, APlanRunCarriesItsPolicyAndItsSettingsWithoutPasswords)
{
    TemporaryInstance instance;
    Orv::Info::Plan::BackupFile plan;
    plan.setId(QUuid::createUuid());
    plan.setName(QStringLiteral("Ledgers"));
    plan.setIsArchive(false);
    plan.setItems({QStringLiteral("/srv/ledgers")});
    plan.encryption().setEnabled(true);
    plan.encryption().setPassword(QStringLiteral("purple monkey dishwasher"));
    custom(plan.retentionPolicy());
    plan.retentionPolicy().setUseKeepVersion(true);
    plan.retentionPolicy().setKeepVersion(3);
    Orv::Info::Storage::Connection account;
    account.setId(QUuid::createUuid());
    for (const bool save : {true, false}) {
        plan.setSavePlanInCloud(save);
        Orv::Service::RunRequest request;
        QString error;
        ASSERT_TRUE(Orv::Service::makeRunRequest(plan, account, {},
                                                 Orv::Service::RunSettings::current(),
                                                 instance.path("cache"), false, &request, &error))
            << error.toStdString();
        EXPECT_EQ(request.backup.versions.keep, 3);
        EXPECT_EQ(request.notice, QString());
        const QByteArray saved = request.backup.savedPlan;
        EXPECT_EQ(saved.contains("Ledgers"), save);
        EXPECT_FALSE(saved.contains("purple monkey")) << saved.constData();
        EXPECT_EQ(saved.isEmpty(), !save);
    }
}

} // namespace
