// The storage commands (list, deep-sync, delete) against a service made up in
// the test process: it answers from a fixed tree of bunches, generations,
// restore points and folder content, serves content in small pages, and
// records every request so that what a command sends can be checked.

#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvInfo/Repository/Objects.h"
#include "unit/InProcessService.h"

#include <QJsonArray>
#include <QLocale>

using namespace Orv::Service;
using namespace Orv::Info::Repository;
namespace Repo = Orv::Common::Communication::V2::Repository;
using GetConnection = Orv::Common::Communication::V2::GetConnection;

namespace {

const QString kOffsite = QStringLiteral("{6d1e0c2a-8b3f-4a5d-9e7c-1f2a3b4c5d6e}");
const QString kBare = QStringLiteral("{0a1b2c3d-4e5f-4a6b-8c7d-9e0f1a2b3c4d}");
const QString kDamaged = QStringLiteral("{9f8e7d6c-5b4a-4392-8170-6f5e4d3c2b1a}");
const QString kNightly = QStringLiteral("11111111-2222-4333-8444-555555555501");
const QString kEmpty = QStringLiteral("11111111-2222-4333-8444-555555555502");
const QString kContent = QStringLiteral("/home/ann");

QDateTime local(int day, int hour, int minute)
{
    return QDateTime(QDate(2026, 3, day), QTime(hour, minute), Qt::LocalTime);
}

QByteArray shown(const QDateTime& time)
{
    return QLocale::system().toString(time, QLocale::ShortFormat).toUtf8();
}

Generation generation(const QString& id, const QDateTime& first, const QDateTime& last)
{
    Generation generation;
    generation.setId(id);
    generation.setFirstRestorePoint(first);
    generation.setLastRestorePoint(last);
    return generation;
}

RestorePoint point(const QString& id, RestorePoint::BackupType type, const QDateTime& start,
                   RestorePoint::Status status = RestorePoint::Status::Success)
{
    RestorePoint point;
    point.setId(id);
    point.setBackupType(type);
    point.setStartDate(start);
    point.setStatus(status);
    return point;
}

struct Row
{
    QStringList words;
    int result;
    QByteArray printed;
    // What the service was asked, when it matters for the row.
    QStringList requests;
};

class StorageGroup : public InProcessService
{
protected:
    void SetUp() override
    {
        InProcessService::SetUp();

        // "Old" has every flag a generation can carry; "Recent" none.
        Generation old = generation(QStringLiteral("gen-old"), local(1, 9, 0), local(2, 9, 0));
        old.setWarningCount(1);
        old.setErrorCount(2);
        old.setDeepSync(true);
        old.setEncrypted(true);
        old.setHint(QByteArray("my dog").toBase64());
        generations = {old,
                       generation(QStringLiteral("gen-recent"), local(3, 9, 0), local(3, 9, 0))};
        RestorePoint last = point(QStringLiteral("p3"), RestorePoint::BackupType::Incremental,
                                  local(2, 9, 0), RestorePoint::Status::Failure);
        last.setDeepSync(true);
        last.setEncrypted(true);
        oldPoints = {point(QStringLiteral("p1"), RestorePoint::BackupType::Full, local(1, 9, 0)),
                     point(QStringLiteral("p2"), RestorePoint::BackupType::Incremental,
                           local(1, 21, 30), RestorePoint::Status::Warning),
                     last};

        registry.addTyped<GetConnection>([](const GetConnection::Request&, const RequestContext&) {
            GetConnection::Response response;
            response.setConnections(
                {QJsonObject{{"DisplayName", "Offsite"}, {"ID", kOffsite}, {"Type", 2}},
                 QJsonObject{{"DisplayName", "Bare"}, {"ID", kBare}, {"Type", 1}},
                 QJsonObject{{"DisplayName", "Damaged"}, {"ID", kDamaged}, {"Type", 1}}});
            return TypedOutcome::done(response);
        });
        answer<Repo::GetBunchList>("bunches", [this](const Repo::RepositoryRequest& request) {
            if (bunchTryLater > 0 && bunchTryLater-- > 0)
                return TypedOutcome::tryLater();
            if (request.connectionId() == QUuid(kBare))
                return listed({});
            return listed({bunch(kNightly, "Nightly"), bunch(kEmpty, "Empty")});
        });
        answer<Repo::GetGenerationList>("generations", [this](const Repo::RepositoryRequest& r) {
            QJsonArray items;
            for (const Generation& generation : generations)
                items.append(generation.toJson());
            if (r.connectionId() == QUuid(kDamaged))
                items = {QJsonObject{{"first", "yesterday"}}};
            return listed(r.bunchId() == kNightly ? items : QJsonArray());
        });
        answer<Repo::GetRestorePointList>("points", [this](const Repo::RepositoryRequest& r) {
            QJsonArray items;
            for (const RestorePoint& point : oldPoints)
                items.append(point.toJson());
            if (r.generationId() != QStringLiteral("gen-old"))
                items = {point("p4", RestorePoint::BackupType::Full, local(3, 9, 0)).toJson()};
            return listed(items);
        });
        registry.addTyped<Repo::GetContent>(
            [this](const Repo::RepositoryRequest& request, const RequestContext&) {
                requests << QStringLiteral("content %1 %2 limit %3 offset %4")
                                .arg(request.restorePointId(), request.path())
                                .arg(request.limit())
                                .arg(request.offset());
                return contentPage(request);
            });
        const auto done = [](const Repo::RepositoryRequest& request) {
            return request.password() == QStringLiteral("wrong")
                       ? TypedOutcome::failed(QStringLiteral("Wrong password"))
                       : TypedOutcome::done(Repo::DoneResponse());
        };
        answer<Repo::StartDeepSync>("deep sync", done);
        answer<Repo::RemoveDataBunch>("remove bunch", done);
        answer<Repo::RemoveDataGeneration>("remove generation", done);
    }

    // Records each request as its name and the bunch, generation and password it names.
    template <typename Definition>
    void answer(const char* name,
                const std::function<TypedOutcome(const Repo::RepositoryRequest&)>& reply)
    {
        registry.addTyped<Definition>(
            [this, name, reply](const Repo::RepositoryRequest& request, const RequestContext&) {
                QStringList words{QLatin1String(name), request.bunchId(), request.generationId(),
                                  request.password()};
                words.removeAll(QString());
                requests << words.join(' ');
                return reply(request);
            });
    }

    static QJsonObject bunch(const QString& id, const char* name)
    {
        Bunch bunch;
        bunch.setId(id);
        bunch.setDisplayName(QLatin1String(name));
        return bunch.toJson();
    }

    static TypedOutcome listed(const QJsonArray& items, int offset = 0, bool more = false)
    {
        Repo::ListResponse response;
        response.setItems(items);
        response.setOffset(offset);
        response.setHasMore(more);
        return TypedOutcome::done(response);
    }

    // Five entries, at most two to a page.
    static TypedOutcome contentPage(const Repo::RepositoryRequest& request)
    {
        const int total = 5;
        const int size = request.limit() > 0 ? qMin(request.limit(), 2) : 2;
        QJsonArray items;
        const int end = qMin(total, request.offset() + size);
        for (int i = request.offset(); i < end; ++i) {
            ContentObject object;
            object.setTypeName(i == 0 ? QStringLiteral("Folder") : QStringLiteral("File"));
            object.setPath(QStringLiteral("%1/f%2").arg(request.path()).arg(i));
            items.append(object.toJson());
        }
        return listed(items, end, end < total);
    }

    Outcome run(const QStringList& words)
    {
        requests.clear();
        return InProcessService::run(QStringList{QStringLiteral("storage")} + words);
    }

    void expectRows(const std::initializer_list<Row>& table)
    {
        for (const Row& row : table) {
            SCOPED_TRACE(row.words.join(' ').toStdString());
            const Outcome outcome = run(row.words);
            EXPECT_EQ(outcome.result, row.result);
            EXPECT_EQ(outcome.printed, kBanner + row.printed);
            if (!row.requests.isEmpty()) {
                EXPECT_EQ(requests, row.requests);
            }
        }
    }

    QList<Generation> generations;
    QList<RestorePoint> oldPoints;
    QStringList requests;
    int bunchTryLater = 0;
};

} // namespace

TEST_F(StorageGroup, ListWalksDownAsFarAsTheOptionsGo)
{
    const QByteArray oldLine =
        "\t\tGeneration: " + shown(local(1, 9, 0)) + " - " + shown(local(2, 9, 0)) + " gen-old";
    const QByteArray oldFlags = " - Warnings - Errors - Need deep sync - Encrypted";
    const QByteArray recentLine = "\t\tGeneration: " + shown(local(3, 9, 0)) + " - " +
                                  shown(local(3, 9, 0)) + " gen-recent\n";
    const QByteArray nightly = "Storage: Offsite\n\tBunch: Nightly " + kNightly.toUtf8() + "\n";
    const QByteArray empty =
        "\tBunch: Empty " + kEmpty.toUtf8() + "\n\tBunch does not contain generations.\n";
    const QByteArray firstPoint = "\t\t\tRestore point: (Full) " + shown(local(1, 9, 0)) + "\n";
    const QString firstMinute = QStringLiteral("01.03.26 09:00");
    // Every page asks for no more than is still wanted, from where the last ended.
    const QString pages = QStringLiteral("content p1 ") + kContent + " limit %1 offset %2";

    expectRows({
        {{"list", "-a", "Offsite"},
         0,
         nightly + oldLine + oldFlags + "\n" + recentLine + empty,
         {"bunches", "generations " + kNightly, "generations " + kEmpty}},
        {{"list", "-i", kOffsite, "-b", "Nightly", "-g", "gen-old", "--all", "--hint"},
         0,
         nightly + oldLine + oldFlags + " - Hint : my dog\n" + firstPoint +
             "\t\t\tRestore point: (Incremental) " + shown(local(1, 21, 30)) +
             " - Warning\n"
             "\t\t\tRestore point: (Incremental) " +
             shown(local(2, 9, 0)) + " - Fail - Need deep sync - Encrypted\n",
         {}},
        {{"list", "-a", "Offsite", "--bunch-id", "{" + kNightly.toUpper() + "}", "-r", firstMinute,
          "--path", kContent, "--limit", "3", "--offset", "1"},
         0,
         nightly + oldLine + oldFlags + "\n" + firstPoint + "\t\t\t\tFile - " + kContent.toUtf8() +
             "/f1\n\t\t\t\tFile - " + kContent.toUtf8() + "/f2\n\t\t\t\tFile - " +
             kContent.toUtf8() + "/f3\n" + recentLine,
         {"bunches", "generations " + kNightly, "points " + kNightly + " gen-old",
          pages.arg(3).arg(1), pages.arg(1).arg(3), "points " + kNightly + " gen-recent"}},
        // Without a limit the pages follow each other to the end.
        {{"list", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old", "-r", "1.3.2026 9:00",
          "--path", kContent},
         0,
         nightly + oldLine + oldFlags + "\n" + firstPoint + "\t\t\t\tFolder - " +
             kContent.toUtf8() + "/f0\n\t\t\t\tFile - " + kContent.toUtf8() +
             "/f1\n\t\t\t\tFile - " + kContent.toUtf8() + "/f2\n\t\t\t\tFile - " +
             kContent.toUtf8() + "/f3\n\t\t\t\tFile - " + kContent.toUtf8() + "/f4\n",
         {"bunches", "generations " + kNightly, "points " + kNightly + " gen-old",
          pages.arg(0).arg(0), pages.arg(0).arg(2), pages.arg(0).arg(4)}},
        {{"list", "-a", "Bare"}, 0, "Storage: Bare\n\tStorage does not contain bunches\n", {}},
        {{"list", "-a", "Nope"}, -1, "Error: specified account doesn't exist\n", {}},
        {{"list", "-a", "Offsite", "-g", "gen-gone"},
         -1,
         nightly + "\tBunch: Empty " + kEmpty.toUtf8() +
             "\n\tBunch does not contain generations.\n"
             "Error: specified generation doesn't exist\n",
         {}},
        {{"list", "-a", "Damaged"},
         -1,
         "Storage: Damaged\n\tBunch: Nightly " + kNightly.toUtf8() +
             "\nInternal error: invalid command response format\n",
         {}},
        {{"list", "-a", "Offsite", "-r", "29.02.26 10:00"},
         0,
         "Wrong restore point: 29.02.26 10:00 (expected dd.mm.yy hh:mm).\n\nUnknown command.\n\n",
         {}},
        {{"list", "-a", "Offsite", "--limit", "0"},
         0,
         "Limit value should be greater zero.\n\nUnknown command.\n\n",
         {}},
    });

    // A service not ready yet is asked again.
    bunchTryLater = 1;
    EXPECT_EQ(run({"list", "-a", "Bare"}).result, 0);
    EXPECT_EQ(requests, QStringList({"bunches", "bunches"}));
}

TEST_F(StorageGroup, DeepSyncAndDeleteSendOnlyWhatTheGenerationAndTheSwitchesAllow)
{
    const QByteArray preview = "Storage: Offsite\n\tBunch: Nightly";
    const QByteArray confirm =
        "Please confirm remove backup data (use parameter --confirm or -c).\n\n";
    const QByteArray generationPreview =
        preview + "\n\t\tGeneration: " + shown(local(1, 9, 0)) + " - " + shown(local(2, 9, 0)) +
        " - WILL BE DELETED\n"
        "\t\t\t       (Full): " +
        shown(local(1, 9, 0)) +
        " - WILL BE DELETED\n"
        "\t\t\t(Incremental): " +
        shown(local(1, 21, 30)) +
        " - WILL BE DELETED\n"
        "\t\t\t(Incremental): " +
        shown(local(2, 9, 0)) + " - WILL BE DELETED\n\t\tGeneration: " + shown(local(3, 9, 0)) +
        " - " + shown(local(3, 9, 0)) + "\n";
    const QStringList walk = {"bunches", "generations " + kNightly};

    expectRows({
        {{"deep-sync", "-a", "Offsite", "-b", "Nightly", "-g", "gen-recent"},
         0,
         "Generation does not need synchronization\n",
         walk},
        {{"deep-sync", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old"},
         -1,
         "Need password.\nHint: my dog\n\n",
         walk},
        {{"deep-sync", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old", "--password",
          " two words "},
         0,
         "Deep sync success.\n",
         walk + QStringList{"deep sync " + kNightly + " gen-old  two words "}},
        {{"deep-sync", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old", "--password", "wrong"},
         -1,
         "Wrong password\n",
         {}},
        {{"deep-sync", "-a", "Offsite", "-b", "Nightly"},
         0,
         "Option [ g,generation ] is mandatory.\n\nUnknown command.\n\n",
         {}},
        {{"deep-sync", "-a", "Offsite", "-b", "Gone", "-g", "gen-old"},
         -1,
         "Error: specified bunch doesn't exist\n",
         {}},
        {{"delete", "-a", "Offsite", "-b", "Nightly"},
         -1,
         preview + " - WILL BE DELETED\n" + confirm,
         {"bunches"}},
        {{"delete", "-a", "Offsite", "--bunch-id", kNightly, "-c"},
         0,
         preview + " - WILL BE DELETED\nSuccess.\n",
         {"bunches", "remove bunch " + kNightly}},
        {{"delete", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old"},
         -1,
         generationPreview + confirm,
         walk + QStringList{"points " + kNightly + " gen-old"}},
        {{"delete", "-a", "Offsite", "-b", "Nightly", "-g", "gen-old", "--confirm"},
         0,
         generationPreview + "Success.\n",
         walk + QStringList{"points " + kNightly + " gen-old",
                            "remove generation " + kNightly + " gen-old"}},
        {{"delete", "-a", "Offsite", "-b", "Empty", "-g", "gen-old", "-c"},
         -1,
         "Storage: Offsite\n\tBunch: Empty\n\tBunch does not contain generations.\n"
         "Error: specified generation doesn't exist\n",
         {"bunches", "generations " + kEmpty}},
        {{"delete", "-a", "Offsite"},
         0,
         "Options [ b,bunch ] or [ bunch-id ] is mandatory.\n\nUnknown command.\n\n",
         {}},
    });
}
