// create_backup and edit_backup against the real orvd, read back from the
// plan list the service keeps.

#include "integration/AccountRuns.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/Factory.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QThread>
#include <gtest/gtest.h>

using OrvTest::Sandbox;
using namespace OrvTest::Accounts;
using namespace Orv::Info::Plan;

namespace {

// The plan-list row of the plan with that name; empty when there is none.
QJsonObject planRow(Sandbox& sandbox, const QString& name)
{
    OrvTest::ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QStringLiteral("PlanGetList"));
    const QJsonArray rows = reply ? reply->value(QStringLiteral("data"))
                                        .toObject()
                                        .value(QStringLiteral("planList"))
                                        .toArray()
                                  : QJsonArray();
    for (const QJsonValue& row : rows)
        if (row[QStringLiteral("Name")].toString() == name)
            return row.toObject();
    return {};
}

} // namespace

TEST(PlanCommandsEndToEnd, CreatedPlanIsSavedSealedAndEditedInPlace)
{
    Sandbox sandbox;
    ASSERT_TRUE(sandbox.startService());
    QDir().mkpath(sandbox.path(QStringLiteral("store")));
    QDir().mkpath(sandbox.path(QStringLiteral("docs")));
    expectRun(run(sandbox, "account add filesystem --name Office -p desk -f",
                  {sandbox.path(QStringLiteral("store"))}),
              kSuccess);
    const QString account = record(sandbox, QStringLiteral("Office"))["ID"].toString();

    const OrvTest::RunResult created = run(
        sandbox,
        "plan create_backup --confirm --account Office --format nbf --name Docs "
        "--encryption true --encryption-password pa55-word --schedule true --frequency-value "
        "Weekly --week-day-numbers 1,5 --occurs-at-option true --occurs-at-value 21:00 --source",
        {sandbox.path(QStringLiteral("docs"))});
    EXPECT_EQ(created.exitCode, 0);
    // The success line comes as soon as the plan is sent; the service's own
    // answer may follow it.
    EXPECT_TRUE(created.out.startsWith(kBanner + kSuccess)) << created.out.toStdString();

    // The plan reaches the service even though the command did not wait.
    QJsonObject row;
    for (QDeadlineTimer deadline(10000); row.isEmpty() && !deadline.hasExpired();
         QThread::msleep(50))
        row = planRow(sandbox, QStringLiteral("Docs"));
    ASSERT_FALSE(row.isEmpty());
    const QString xml = row[QStringLiteral("PlanXml")].toString();
    // Stored with its password sealed, never in clear.
    EXPECT_FALSE(xml.contains(QLatin1String("pa55-word")));
    EXPECT_TRUE(xml.contains(QLatin1String("Form=\"sealed\"")));
    const QSharedPointer<BackupFile> plan = Factory::create(xml).dynamicCast<BackupFile>();
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->storage(), QUuid(account));
    EXPECT_TRUE(plan->isArchive());
    EXPECT_TRUE(plan->encryption().isEnabled());
    EXPECT_EQ(plan->items(), QStringList{sandbox.path(QStringLiteral("docs"))});
    EXPECT_EQ(plan->schedule().frequencyType(), Schedule::FrequencyType::Weekly);
    EXPECT_EQ(plan->schedule().occursAt(), QTime(21, 0));

    const QByteArray listed = run(sandbox, "plan list").out;
    EXPECT_TRUE(listed.contains("Display name: Docs\n")) << listed.toStdString();

    // The edit finds the plan through the list and keeps what it is not told.
    expectRun(run(sandbox, "plan edit_backup --name Docs --confirm --occurs-at-value 06:45"),
              kSuccess);
    const QSharedPointer<BackupFile> edited =
        Factory::create(
            planRow(sandbox, QStringLiteral("Docs"))[QStringLiteral("PlanXml")].toString())
            .dynamicCast<BackupFile>();
    ASSERT_TRUE(edited);
    EXPECT_EQ(edited->id(), plan->id());
    EXPECT_EQ(edited->schedule().occursAt(), QTime(6, 45));
    EXPECT_EQ(edited->schedule().weeklyFrequency(), plan->schedule().weeklyFrequency());
    EXPECT_TRUE(edited->encryption().isEnabled());
    EXPECT_FALSE(edited->encryption().password().isEmpty());

    EXPECT_EQ(sandbox.stopService(), 0);
}
