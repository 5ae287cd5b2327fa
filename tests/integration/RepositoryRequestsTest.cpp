// The repository requests answered by the real orvd on a folder account, over
// backups its own plans made in either format: the listings and their flags,
// paging through a large folder, the deep sync that rebuilds a lost cache, and
// removals, which wait for the bunch's plan to stop running. Then a machine
// that has only the account finds and restores a current-format plan.

#include "PlanRuns.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/PlanCommands.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/PlanObject.h"
#include "orvInfo/Repository/Objects.h"
#include "support/Sandbox.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QDirIterator>
#include <QFile>
#include <QJsonArray>
#include <QMap>
#include <QSet>
#include <QThread>
#include <gtest/gtest.h>

using namespace OrvTest;
using Orv::Info::PlanObject;
using Orv::Info::Plan::PlanResult;
namespace Format = Orv::Common::Communication::Commands::Format;
namespace V2Plan = Orv::Common::Communication::V2::Plan;
namespace Repo = Orv::Common::Communication::V2::Repository;
namespace Info = Orv::Info::Repository;

namespace {

constexpr char kPassword[] = "correct horse";
constexpr char kHint[] = "the stable, twice";

// One answer: the error message (empty when done) and the list it carries.
struct Answer
{
    QString error;
    Repo::ListResponse list;
};

template <typename Object> QList<Object> objects(const Answer& answer)
{
    QList<Object> list;
    for (const QJsonValue& value : answer.list.items()) {
        Object object;
        EXPECT_TRUE(object.fromJson(value.toObject()));
        list.append(object);
    }
    return list;
}

// Whether the plans write the current format (cbf) rather than the new one.
QStringList filesUnder(const QString& folder)
{
    QStringList files;
    QDirIterator it(folder, QDir::Files, QDirIterator::Subdirectories);
    while (it.hasNext())
        files.append(it.next());
    return files;
}

class RepositoryRequests : public ::testing::TestWithParam<bool>
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(sandbox.startService());
        accountId = Plans::addFolderAccount(sandbox);
        ASSERT_FALSE(accountId.isNull());
        source = sandbox.path(QStringLiteral("source"));
        sandbox.writeFile(QStringLiteral("source/docs/a.txt"), "first");
    }

    Orv::Info::Plan::BackupFile backupPlan(const QString& name) const
    {
        Orv::Info::Plan::BackupFile plan;
        plan.setId(QUuid::createUuid());
        plan.setName(name);
        plan.setStorage(accountId);
        plan.setAccountId(accountId);
        plan.setIsArchive(!current());
        plan.setItems({source});
        plan.encryption().setEnabled(true);
        plan.encryption().setPassword(QLatin1String(kPassword));
        // As the command line keeps it.
        plan.encryption().setHint(QByteArray(kHint).toBase64());
        return plan;
    }

    static bool current() { return GetParam(); }
    QString save(const Orv::Info::Plan::Base& plan) { return Plans::savePlan(sandbox, plan); }

    Answer typed(const QUuid& command, const QJsonObject& request)
    {
        const auto reply = Plans::callTyped(sandbox, command, request);
        Answer answer;
        answer.error = Plans::errorOf(reply);
        if (reply)
            answer.list.fromJson(
                reply->value(QLatin1String(Format::Header::TypedResponse)).toObject());
        return answer;
    }

    Answer ask(const QUuid& command, Repo::RepositoryRequest request)
    {
        if (request.connectionId().isNull())
            request.setConnectionId(accountId);
        return typed(command, request.toJson());
    }

    static Repo::RepositoryRequest in(const QString& bunch, const QString& generation = {})
    {
        Repo::RepositoryRequest request;
        request.setBunchId(bunch);
        request.setGenerationId(generation);
        return request;
    }

    QString start(const QUuid& plan, bool full = false)
    {
        return Plans::startPlan(sandbox, plan, full);
    }
    PlanObject row(const QUuid& plan) { return Plans::planRow(sandbox, plan); }
    PlanObject waitIdle(const QUuid& plan) { return Plans::waitIdle(sandbox, plan); }

    void backUp(const QUuid& plan, bool full = false)
    {
        ASSERT_EQ(start(plan, full), QString());
        const PlanObject done = waitIdle(plan);
        ASSERT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
    }

    QList<Info::Generation> generations(const QString& bunch)
    {
        const Answer answer = ask(Repo::GetGenerationList::CommandId, in(bunch));
        EXPECT_EQ(answer.error, QString());
        return objects<Info::Generation>(answer);
    }

    Sandbox sandbox;
    QUuid accountId;
    QString source;
};

} // namespace

// Two runs of an encrypted plan, listed with their flags and browsed: a
// folder of 1,000 files read in pages returns each exactly once, points are
// found by id and by the minute they started, and lookups of what is not
// there name it. Then the local cache is lost: the generation asks for a deep
// sync, which a wrong password leaves as it was and the right one completes.
TEST_P(RepositoryRequests, ListsBrowsesAndDeepSyncsRealBackups)
{
    QStringList many;
    for (int i = 0; i < 1000; ++i) {
        const QString name = QStringLiteral("source/many/f-%1").arg(i, 4, 10, QLatin1Char('0'));
        sandbox.writeFile(name, QByteArray::number(i));
        many.append(sandbox.path(name));
    }
    const Orv::Info::Plan::BackupFile plan = backupPlan(QStringLiteral("Nightly"));
    const QString bunch = plan.id().toString(QUuid::WithoutBraces);
    ASSERT_EQ(save(plan), QString());
    backUp(plan.id());
    sandbox.writeFile(QStringLiteral("source/docs/b.txt"), "second");
    backUp(plan.id());

    const QList<Info::Bunch> bunches = objects<Info::Bunch>(ask(Repo::GetBunchList::CommandId, {}));
    ASSERT_EQ(bunches.size(), 1);
    EXPECT_EQ(bunches.first().id(), bunch);
    EXPECT_EQ(bunches.first().displayName(), QStringLiteral("Nightly"));

    const QList<Info::Generation> listed = generations(bunch);
    ASSERT_EQ(listed.size(), 1);
    const Info::Generation generation = listed.first();
    EXPECT_TRUE(generation.isEncrypted());
    EXPECT_FALSE(generation.deepSync());
    EXPECT_EQ(QByteArray::fromBase64(generation.hint()), QByteArray(kHint));
    EXPECT_LE(generation.firstRestorePoint(), generation.lastRestorePoint());
    EXPECT_EQ(generation.id() == Info::kCurrentFormatGeneration, current());

    const QList<Info::RestorePoint> points = objects<Info::RestorePoint>(
        ask(Repo::GetRestorePointList::CommandId, in(bunch, generation.id())));
    ASSERT_EQ(points.size(), 2);
    EXPECT_EQ(points.at(0).backupType(), Info::RestorePoint::BackupType::Full);
    EXPECT_EQ(points.at(1).backupType(), Info::RestorePoint::BackupType::Incremental);
    for (const Info::RestorePoint& point : points) {
        EXPECT_TRUE(point.isEncrypted());
        EXPECT_FALSE(point.deepSync());
        EXPECT_EQ(point.generationId(), generation.id());
    }
    const QList<Info::RestorePoint> ofBunch =
        objects<Info::RestorePoint>(ask(Repo::GetBunchRestorePointList::CommandId, in(bunch)));
    ASSERT_EQ(ofBunch.size(), 2);
    EXPECT_EQ(ofBunch.at(1).id(), points.at(1).id());

    // Pages of 64 through 1,000 entries: the last page is short.
    QStringList paged;
    Repo::RepositoryRequest page = in(bunch, generation.id());
    page.setRestorePointId(points.at(1).id());
    page.setPassword(QLatin1String(kPassword));
    page.setPath(source + QStringLiteral("/many/"));
    page.setLimit(64);
    for (int requests = 0; requests < 20; ++requests) {
        const Answer answer = ask(Repo::GetContent::CommandId, page);
        ASSERT_EQ(answer.error, QString());
        for (const Info::ContentObject& object : objects<Info::ContentObject>(answer)) {
            EXPECT_EQ(object.typeName(), QStringLiteral("File"));
            paged.append(object.path());
        }
        if (!answer.list.hasMore())
            break;
        page.setOffset(answer.list.offset());
    }
    EXPECT_EQ(paged.size(), 1000);
    EXPECT_EQ(QSet<QString>(paged.begin(), paged.end()).size(), 1000);
    EXPECT_TRUE(paged == many) << "the pages are not the folder in order";

    // The first point (found by the minute it started) lacks the file the
    // second added. Without a password, the plan's own opens the points.
    auto docs = [&](const Repo::RepositoryRequest& request) {
        Repo::RepositoryRequest listing = request;
        listing.setPath(source + QStringLiteral("/docs"));
        const Answer answer = ask(Repo::GetContent::CommandId, listing);
        QStringList paths;
        for (const Info::ContentObject& object : objects<Info::ContentObject>(answer))
            paths.append(object.path().mid(source.size()));
        return answer.error.isEmpty() ? paths.join(' ') : answer.error;
    };
    Repo::RepositoryRequest byTime = in(bunch, generation.id());
    byTime.setRestorePointTime(points.at(0).startDate());
    EXPECT_EQ(docs(byTime), QStringLiteral("/docs/a.txt"));
    Repo::RepositoryRequest byId = in(bunch, generation.id());
    byId.setRestorePointId(points.at(1).id());
    EXPECT_EQ(docs(byId), QStringLiteral("/docs/a.txt /docs/b.txt"));

    Repo::RepositoryRequest asked = byId;
    asked.setPassword(QLatin1String(kPassword));
    asked.setPaths({source + QStringLiteral("/docs/b.txt"), source + QStringLiteral("/nothing")});
    const Answer found = ask(Repo::GetRestorePointPaths::CommandId, asked);
    EXPECT_EQ(found.error, QString());
    EXPECT_EQ(found.list.items(), QJsonArray{source + QStringLiteral("/docs/b.txt")});

    // What is not there is named; an encrypted point is not read with a
    // wrong password.
    struct Case
    {
        const char* name;
        QUuid command;
        Repo::RepositoryRequest request;
        QString expected;
    };
    Repo::RepositoryRequest otherAccount;
    otherAccount.setConnectionId(QUuid::createUuid());
    Repo::RepositoryRequest noPoint = byId;
    noPoint.setRestorePointId(QStringLiteral("no-such-point"));
    Repo::RepositoryRequest wrongPassword = byId;
    wrongPassword.setPassword(QStringLiteral("wrong horse"));
    Repo::RepositoryRequest noFolder = byId;
    noFolder.setPassword(QLatin1String(kPassword));
    noFolder.setPath(source + QStringLiteral("/gone"));
    const Case cases[] = {
        {"unknown account", Repo::GetBunchList::CommandId, otherAccount,
         QStringLiteral("specified account doesn't exist")},
        {"unknown bunch", Repo::GetGenerationList::CommandId, in(QStringLiteral("no-such-bunch")),
         QStringLiteral("no-such-bunch")},
        {"unknown generation", Repo::GetRestorePointList::CommandId,
         in(bunch, QStringLiteral("no-such-generation")), QStringLiteral("no-such-generation")},
        {"unknown point", Repo::GetContent::CommandId, noPoint, QStringLiteral("no-such-point")},
        {"missing folder", Repo::GetContent::CommandId, noFolder, source + QStringLiteral("/gone")},
        {"wrong password", Repo::GetContent::CommandId, wrongPassword,
         QStringLiteral("Wrong password")},
        {"bunch id that reaches out", Repo::RemoveDataBunch::CommandId, in(QStringLiteral("..")),
         QStringLiteral("does not exist")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const QString error = ask(c.command, c.request).error;
        EXPECT_TRUE(error.contains(c.expected)) << error.toStdString();
    }

    // The local cache lost: the generation must be rebuilt before the new
    // format reads it; the current one reads its runs from the storage alone.
    ASSERT_TRUE(
        QDir(sandbox.path(
                 QStringLiteral("data/cache/%1").arg(accountId.toString(QUuid::WithoutBraces))))
            .removeRecursively());
    EXPECT_TRUE(generations(bunch).value(0).deepSync());
    if (current())
        EXPECT_EQ(docs(byId), QStringLiteral("/docs/a.txt /docs/b.txt"));
    else
        EXPECT_TRUE(docs(byId).contains("deep sync")) << docs(byId).toStdString();
    Repo::RepositoryRequest sync = in(bunch, generation.id());
    sync.setPassword(QStringLiteral("wrong horse"));
    const QString wrong = ask(Repo::StartDeepSync::CommandId, sync).error;
    EXPECT_TRUE(wrong.contains("Wrong password")) << wrong.toStdString();
    EXPECT_TRUE(generations(bunch).value(0).deepSync());
    sync.setPassword(QLatin1String(kPassword));
    EXPECT_EQ(ask(Repo::StartDeepSync::CommandId, sync).error, QString());
    EXPECT_FALSE(generations(bunch).value(0).deepSync());
    EXPECT_EQ(docs(byId), QStringLiteral("/docs/a.txt /docs/b.txt"));
}

// A generation (or the bunch) is not removed, nor deep synced, while the
// bunch's plan runs; afterwards one generation goes, then the whole bunch.
TEST_P(RepositoryRequests, RemovalsWaitForTheRunAndEmptyTheListing)
{
    Orv::Info::Plan::BackupFile plan = backupPlan(QStringLiteral("Weekly"));
    const QString bunch = plan.id().toString(QUuid::WithoutBraces);
    ASSERT_EQ(save(plan), QString());
    backUp(plan.id());
    backUp(plan.id(), true);
    const QList<Info::Generation> before = generations(bunch);
    // The current format keeps every run in one generation.
    ASSERT_EQ(before.size(), current() ? 1 : 2) << "a full run starts a generation";

    plan.actions().pre().setEnabled(true);
    plan.actions().pre().setProgram(QStringLiteral("\"/bin/sleep\" 30"));
    ASSERT_EQ(save(plan), QString());
    ASSERT_EQ(start(plan.id()), QString());
    Repo::RepositoryRequest sync = in(bunch, before.first().id());
    sync.setPassword(QLatin1String(kPassword));
    for (const QUuid& command :
         {Repo::RemoveDataGeneration::CommandId, Repo::RemoveDataBunch::CommandId,
          Repo::StartDeepSync::CommandId}) {
        const QString error = ask(command, sync).error;
        EXPECT_TRUE(error.contains("is running")) << error.toStdString();
    }
    ASSERT_EQ(typed(V2Plan::StopPlan::CommandId, {{"planId", bunch}}).error, QString());
    waitIdle(plan.id());
    EXPECT_EQ(generations(bunch).size(), before.size()) << "nothing was removed";

    EXPECT_EQ(ask(Repo::RemoveDataGeneration::CommandId, in(bunch, before.first().id())).error,
              QString());
    if (current()) {
        EXPECT_TRUE(ask(Repo::GetBunchList::CommandId, {}).list.items().isEmpty());
        EXPECT_EQ(filesUnder(sandbox.path(QStringLiteral("store"))), QStringList());
        return;
    }
    const QList<Info::Generation> after = generations(bunch);
    ASSERT_EQ(after.size(), 1);
    EXPECT_EQ(after.first().id(), before.last().id());
    const QString again =
        ask(Repo::RemoveDataGeneration::CommandId, in(bunch, before.first().id())).error;
    EXPECT_TRUE(again.contains(before.first().id())) << again.toStdString();

    EXPECT_EQ(ask(Repo::RemoveDataBunch::CommandId, in(bunch)).error, QString());
    EXPECT_TRUE(ask(Repo::GetBunchList::CommandId, {}).list.items().isEmpty());
    EXPECT_TRUE(ask(Repo::GetGenerationList::CommandId, in(bunch)).error.contains(bunch));
}

INSTANTIATE_TEST_SUITE_P(Formats, RepositoryRequests, ::testing::Bool(),
                         [](const auto& info) { return std::string(info.param ? "Cbf" : "Nbf"); });

namespace {

// The id of the plan the plan list shows under the name; null when none.
QUuid planNamed(Sandbox& sandbox, const QString& name)
{
    ServiceRawClient client(sandbox.socketPath());
    const auto reply = client.call(QLatin1String(Format::Plan::GetList::Name));
    const QJsonArray rows = reply ? reply->value(QLatin1String(Format::Header::Data))
                                        .toObject()
                                        .value(QLatin1String(Format::Plan::GetList::Reply::Key))
                                        .toArray()
                                  : QJsonArray();
    for (const QJsonValue& value : rows) {
        const PlanObject row = PlanObject::fromRow(value.toObject());
        if (row.displayName() == name)
            return row.id();
    }
    return {};
}

// Every file below root by its path under it, with its content.
QMap<QString, QByteArray> contents(const QString& root)
{
    QMap<QString, QByteArray> all;
    for (const QString& path : filesUnder(root)) {
        QFile file(path);
        EXPECT_TRUE(file.open(QIODevice::ReadOnly)) << path.toStdString();
        all.insert(path.mid(root.size()), file.readAll());
    }
    return all;
}

} // namespace

// A current-format plan backs up twice, two hours apart by the service's
// clock; a fresh machine that has only the account lists the plan and its
// runs, and restores it by its name, as of the latest run and as of the
// first, bit for bit.
TEST(CurrentFormatRecovery, AFreshMachineListsAndRestoresAPlanItNeverHad)
{
    Sandbox first;
    QProcessEnvironment clock;
    clock.insert(QStringLiteral("ORV_TEST_CLOCK_FILE"), first.path(QStringLiteral("clock")));
    first.writeFile(QStringLiteral("clock"), "0");
    first.setServiceEnvironment(clock);
    ASSERT_TRUE(first.startService());
    const QUuid account = Plans::addFolderAccount(first);
    const QString source = first.path(QStringLiteral("source"));
    QByteArray data(3 * 1024 * 1024 + 11, Qt::Uninitialized);
    for (int i = 0; i < data.size(); ++i)
        data[i] = char((i * 7919) ^ (i >> 9));
    first.writeFile(QStringLiteral("source/docs/a.txt"), "first");
    first.writeFile(QStringLiteral("source/data.bin"), data);
    first.writeFile(QStringLiteral("source/empty"), {});

    Orv::Info::Plan::BackupFile plan;
    plan.setId(QUuid::createUuid());
    plan.setName(QStringLiteral("Home"));
    plan.setStorage(account);
    plan.setAccountId(account);
    plan.setItems({source});
    plan.encryption().setEnabled(true);
    plan.encryption().setPassword(QLatin1String(kPassword));
    ASSERT_EQ(Plans::savePlan(first, plan), QString());
    auto backUp = [&] {
        ASSERT_EQ(Plans::startPlan(first, plan.id()), QString());
        const PlanObject done = Plans::waitIdle(first, plan.id());
        ASSERT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
    };
    backUp();
    const QMap<QString, QByteArray> atFirst = contents(source);
    first.writeFile(QStringLiteral("clock"), "7200");
    data[1000000] = char(data[1000000] ^ 1);
    first.writeFile(QStringLiteral("source/data.bin"), data);
    first.writeFile(QStringLiteral("source/docs/a.txt"), "second");
    first.writeFile(QStringLiteral("source/docs/b.txt"), "added");
    backUp();
    const QMap<QString, QByteArray> atLatest = contents(source);
    first.stopService();

    Sandbox fresh;
    ASSERT_TRUE(fresh.startService());
    const QString disk = fresh.path(QStringLiteral("disk"));
    QDir().mkpath(disk);
    Accounts::expectRun(Accounts::run(fresh, "account add filesystem -p desk -f",
                                      {disk, QStringLiteral("--name"), QStringLiteral("Desk")}),
                        Accounts::kSuccess);
    // A folder account keeps its data in a folder named by the account's id:
    // the new account is given the old one's, as a moved disk would be.
    const QString folder =
        QStringLiteral("/ORV_") +
        Accounts::record(fresh, QStringLiteral("Desk")).value(QStringLiteral("ID")).toString();
    ASSERT_TRUE(QDir(disk + folder).removeRecursively());
    ASSERT_TRUE(QDir().rename(first.path(QStringLiteral("store/ORV_")) + account.toString(),
                              disk + folder));
    const RunResult listed = Accounts::run(fresh, "storage list -a Desk --all");
    EXPECT_EQ(listed.exitCode, 0) << listed.err.toStdString() << listed.out.toStdString();
    const QString out = QString::fromUtf8(listed.out);
    EXPECT_TRUE(out.contains(QStringLiteral("\tBunch: Home ") +
                             plan.id().toString(QUuid::WithoutBraces) + '\n'))
        << listed.out.toStdString();
    EXPECT_TRUE(out.contains(QStringLiteral(" cbf - Need deep sync - Encrypted\n")))
        << listed.out.toStdString();
    EXPECT_EQ(out.count(QStringLiteral("Restore point: (Full) ")), 1);
    EXPECT_EQ(out.count(QStringLiteral("Restore point: (Incremental) ")), 1);

    Repo::RepositoryRequest request;
    request.setConnectionId(QUuid(
        Accounts::record(fresh, QStringLiteral("Desk")).value(QStringLiteral("ID")).toString()));
    request.setBunchId(plan.id().toString(QUuid::WithoutBraces));
    const auto reply =
        Plans::callTyped(fresh, Repo::GetBunchRestorePointList::CommandId, request.toJson());
    ASSERT_EQ(Plans::errorOf(reply), QString());
    Repo::ListResponse points;
    points.fromJson(reply->value(QLatin1String(Format::Header::TypedResponse)).toObject());
    ASSERT_EQ(points.items().size(), 2);
    Info::RestorePoint firstRun;
    ASSERT_TRUE(firstRun.fromJson(points.items().first().toObject()));

    const struct
    {
        const char* name;
        QStringList when;
        QMap<QString, QByteArray> expected;
    } restores[] = {
        {"Latest", {QStringLiteral("--latest-version")}, atLatest},
        {"First",
         {QStringLiteral("--restore-point"),
          firstRun.startDate().toLocalTime().toString(QStringLiteral("dd.MM.yyyy hh:mm"))},
         atFirst},
    };
    for (const auto& restore : restores) {
        SCOPED_TRACE(restore.name);
        const QString to = fresh.path(QLatin1String(restore.name));
        const RunResult created = Accounts::run(
            fresh, "plan create_restore --account Desk --bunch Home --confirm",
            QStringList{QStringLiteral("--name"), QLatin1String(restore.name),
                        QStringLiteral("--restore-location"), to,
                        QStringLiteral("--decryption-password"), QLatin1String(kPassword)} +
                restore.when);
        ASSERT_EQ(created.exitCode, 0) << created.out.toStdString() << created.err.toStdString();
        const QUuid restorePlan = planNamed(fresh, QLatin1String(restore.name));
        ASSERT_FALSE(restorePlan.isNull());
        ASSERT_EQ(Plans::startPlan(fresh, restorePlan), QString());
        const PlanObject done = Plans::waitIdle(fresh, restorePlan);
        EXPECT_EQ(done.lastRunStatus(), PlanResult(PlanResult::Success))
            << done.lastRunMessage().toStdString();
        EXPECT_TRUE(contents(to + source) == restore.expected) << "not bit for bit";
    }
}
