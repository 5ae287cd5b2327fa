// The plan commands: the order and texts of their checks, what the options
// write into a plan, and create_backup, edit_backup, create_restore and
// edit_restore against a service made up in the test process, down to the
// plan XML it receives.

#include "orvCommon/Communication/V2/PlanCommands.h"

#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvCommon/Communication/V2/RepositoryCommands.h"
#include "orvInfo/Plan/Factory.h"
#include "orvInfo/PlanObject.h"
#include "orvInfo/Repository/Objects.h"
#include "plan/CommandPlanBase.h"
#include "support/QtPrinters.h"
#include "unit/InProcessService.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QLocale>
#include <functional>

using namespace Orv::Service;
using namespace Orv::Info::Plan;
using Orv::CLI::CommandPlanBase;
namespace Format = Orv::Common::Communication::Commands::Format;
using GetConnection = Orv::Common::Communication::V2::GetConnection;
using GetPlanList = Orv::Common::Communication::V2::Plan::GetPlanList;
using StartPlan = Orv::Common::Communication::V2::Plan::StartPlan;
namespace Repo = Orv::Common::Communication::V2::Repository;

namespace {

const QString kFolder = QStringLiteral("{0b7d3c1e-2f4a-4e6b-9c8d-1a2b3c4d5e6f}");
const QString kAmazon = QStringLiteral("{1c8e4d2f-3a5b-4f7c-8d9e-2b3c4d5e6f70}");
const QString kStack = QStringLiteral("{2d9f5e3a-4b6c-4a8d-9eaf-3c4d5e6f7081}");

QStringList words(const char* line)
{
    return QString::fromUtf8(line).split(QLatin1Char(' '), Qt::SkipEmptyParts);
}

const QStringList kCreate = words("--account Folder --format cbf --source /data");

// Exposes the plan filling to the tests.
class Probe : public CommandPlanBase
{
public:
    Probe(ActionType action, PlanType type = Backup)
        : CommandPlanBase(QStringLiteral("probe"), QString(), action, type)
    {
    }
    using CommandPlanBase::fillBackupPlan;
};

struct Checked
{
    int result;
    QByteArray printed;
};

Checked check(CommandPlanBase::ActionType action, CommandPlanBase::PlanType type,
              const QStringList& args)
{
    Probe probe(action, type);
    StdoutCapture capture;
    const int result = probe.process(args);
    return {result, capture.take()};
}

} // namespace

// One row per check, in the order process() runs them: the first failure
// ends validation with its code and its one message.
TEST(PlanValidation, FirstFailingCheckDecidesCodeAndText)
{
    const auto C = CommandPlanBase::Create;
    const auto E = CommandPlanBase::Edit;
    const auto B = CommandPlanBase::Backup;
    const auto R = CommandPlanBase::Restore;
    const QStringList id = words("--id {5a6b7c8d-9e0f-4a1b-8c2d-3e4f5a6b7c8d}");
    struct Row
    {
        CommandPlanBase::ActionType action;
        CommandPlanBase::PlanType type;
        QStringList args;
        int result;
        QByteArray printed;
    };
    const QVector<Row> rows{
        {C, B, kCreate, 0, ""},
        {E, B, words("--encryption true"), 3, "Options [ id ] or [ name ] is mandatory"},
        {C, B, words("--format cbf --source /a"), 1, "Option [ account ] is mandatory"},
        {C, B, words("--account A --source /a"), 1,
         "Options [ format ] is mandatory (Possible: format)"},
        {C, B, words("--account A --format zip"), 2,
         "Options [ format ] has wrong value (Possible: format)"},
        {C, B, words("--account A --format nbf"), 1, "Option [ source ] is mandatory"},
        {C, B, kCreate + words("--storage-class Hot"), 2,
         "Options [ storage-class ] has wrong value.\nPossible values:\nAmazon (Standard, "
         "StandardIA, OneZoneIA, Glacier, Intelligent, GlacierIR, DeepArchive) \nAzure (hot, "
         "cool, archive) \n"},
        // "hot" is a word of the tables; which one applies is known later.
        {C, B, kCreate + words("--storage-class hot"), 0, ""},
        // Switches are checked in a fixed order, whatever the command line's.
        {C, B, kCreate + words("--hidden yes --sse maybe"), 2,
         "Options [ sse ] must be 'true' or 'false'.\n"},
        {C, B, kCreate + words("--sync on"), 2, "Options [ sync ] must be 'true' or 'false'.\n"},
        {C, B, kCreate + words("--encryption true"), 2,
         "Encryption password need to be specified.\n"},
        {E, B, id + words("--encryption true"), 0, ""},
        {C, B, kCreate + words("--encryption-password Se --encryption-hint xSey"), 2,
         "The hint can't contain the password.\n"},
        {C, B, kCreate + words("--encryption-password Se --encryption-hint xsey"), 0, ""},
        {C, B, kCreate + words("--encryption-algorithm aes-512"), 2,
         "Wrong encryption algorithm.\nPossible values for encryption-algorithm option are: "
         "aes-128, aes-192, aes-256.\n"},
        {C, B, kCreate + words("--retention-policy custom"), 2,
         "Options [ retention-policy ] must be set to one of the values: \"Default\", "
         "\"Custom\".\n"},
        {C, B, kCreate + words("--delete-version-older-type Year"), 2,
         "Delete version older type has wrong value\nPossible: \"Month\", \"Week\", \"Day\"\n"},
        {C, B, kCreate + words("--keep-backup-type Decade"), 2,
         "Keep backup type has wrong value\nPossible: \"Year\", \"Month\", \"Week\", \"Day\"\n"},
        {C, B, kCreate + words("--delete-version-older-age x"), 2,
         "Delete version older age must be greater or equal \"1\"\n"},
        {C, B, kCreate + words("--delete-date-type created"), 2,
         "Delete data type must be 'backup-date' or 'modified-date'.\n"},
        {C, B, kCreate + words("--keep-version-number 0"), 2,
         "Keep version number must be greater or equal \"1\"\n"},
        {C, B, kCreate + words("--keep-backup-number 1000"), 2,
         "Keep backup number must be in rang [1-999].\n"},
        {C, B, kCreate + words("--keep-backup-number 999"), 0, ""},
        {C, B, kCreate + words("--delete-locally true"), 2,
         "--delete-locally-delay option is mandatory.\n"},
        {C, B, kCreate + words("--delete-locally true --delete-locally-delay 100000"), 2,
         "Delete locally files count must be in range from \"0\" to \"99999\"\n"},
        {C, B, kCreate + words("--delete-locally false --delete-locally-delay 0"), 0, ""},
        {C, B, kCreate + words("--specific-date-value 2022-04-03"), 2,
         "Use \"dd.MM.yyyy hh:mm\" format for schedule specific date\n"},
        {C, B, kCreate + words("--stop-auto-hours-value 100"), 2,
         "Set hours for stop auto (\"0\" - \"99\")"},
        // The full set keeps the same limits whatever its help says.
        {C, B, kCreate + words("--full-stop-auto-minutes-value 60"), 2,
         "Set minutes for stop auto (\"0\" - \"59\")"},
        {C, B, kCreate + words("--stop-auto-minutes-value 59"), 0, ""},
        {C, B, kCreate + words("--frequency-value DayOfMonth"), 2,
         "Wrong frequency type. Possible values: Monthly, Weekly and Daily (for cbf).\n)"},
        {C, B, kCreate + words("--occurs-at-value 25:00"), 2,
         "Use \"HH:mm\" format for occurs at value\n"},
        {C, B, kCreate + words("--occurs-every-from 7 --occurs-every-to 8"), 2,
         "Use \"HH:mm\" format for occurs every to\n"},
        {C, B, kCreate + words("--occurs-every-value 61"), 2,
         "Set valid value for occurs every (\"1\" - \"60\")"},
        {C, B, kCreate + words("--occurs-every-value 60"), 0, ""},
        {C, B, kCreate + words("--week-day-numbers 1,8"), 2,
         "Set valid value for week day number (\"1\" - \"7\")"},
        {C, B, kCreate + words("--full-monthly-type-value 7"), 2,
         "Option [full-monthly-type-value] must be in range [0-6]\n"},
        {C, B, kCreate + words("--monthly-type-value 6"), 0, ""},
        {C, B, kCreate + words("--monthly-day 32"), 2,
         "Set valid value for option [monthly-day] - (\"1\" - \"7\")\n"},
        {C, B, kCreate + words("--monthly-every 13"), 2,
         "Set valid value for option [monthly-every] - (\"1\" - \"12\")\n"},
        {C, B, kCreate + words("--monthly-repeat-from 31.02.2024"), 2,
         "Use \"dd.MM.yyyy\" format for option [monthly-repeat-from]"},
        {C, B, kCreate + words("--notification always"), 2,
         "Wrong notification type. Possible values: on, off, error-only.\n"},
        {C, B, kCreate + words("--file-mask-type skip"), 3,
         "Parameter conflict: [ file-mask-type ] and [ file-mask ] can't be set separately.\n"},
        {C, B, kCreate + words("--file-mask *.tmp"), 3,
         "Parameter conflict: [ file-mask-type ] and [ file-mask ] can't be set separately.\n"},
        {C, B, kCreate + words("--file-mask-type all"), 0, ""},
        {C, B, kCreate + words("--file-mask-type some --file-mask *.tmp"), 2,
         "File mask type must be \"all\", \"backup\" or \"skip\"\n"},
        // Restore plans share the base and its restore-only checks.
        {C, R, words("--account A --latest-version --restore-point x"), 3,
         "Parameter conflict: [ latest-version ] and [ restore-point ]"},
        {C, R, words("--account A"), 3,
         "Options [ latest-version ] or [ restore-point ] is mandatory"},
        {C, R, words("--account A --latest-version --glacier-retrieval-rate Fast"), 2,
         "Options [ glacier-retrieval-rate ] has wrong value.\nPossible values:\nExpedited, "
         "Standard, Bulk, Skip.\n"},
        {C, R, words("--account A --latest-version --restore-new-files true"), 3,
         "Parameter conflict: [ restore-new-files ] can't be set separately from [ "
         "overwrite-files ].\n"},
        // A backup-only option is no option of a restore command.
        {C, R, words("--account A --latest-version --source /a"), 2, "Unknown option 'source'.\n"},
    };
    for (const Row& row : rows) {
        const Checked got = check(row.action, row.type, row.args);
        EXPECT_EQ(got.result, row.result) << row.args.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(got.printed, row.printed) << row.args.join(QLatin1Char(' ')).toStdString();
    }
}

// What the options write into a plan, and the messages of the setters that
// refuse a combination only the plan or the format can tell.
TEST(PlanFilling, OptionsReachThePlanFields)
{
    TemporaryInstance instance;
    const QString tool = instance.path(QStringLiteral("tool.sh"));
    const QString notExecutable = instance.path(QStringLiteral("notes.txt"));
    instance.writeFile(QStringLiteral("tool.sh"), "#!/bin/sh\n");
    instance.writeFile(QStringLiteral("notes.txt"), "x");
    QFile::setPermissions(tool, QFile::ReadOwner | QFile::ExeOwner);

    const auto C = CommandPlanBase::Create;
    const auto E = CommandPlanBase::Edit;
    using Check = std::function<void(const BackupFile&)>;
    using Prepare = std::function<void(BackupFile&)>;
    struct Row
    {
        CommandPlanBase::ActionType action;
        bool nbf;
        QStringList args;
        QString printed;
        Check check = {};
        Prepare prepare = {};
    };
    const QStringList id = words("--id {5a6b7c8d-9e0f-4a1b-8c2d-3e4f5a6b7c8d}");
    const Prepare monthly = [](BackupFile& p) {
        p.retentionPolicy().setDeleteFileAge({3, BackupRetentionPolicy::FileAge::Unit::Month});
    };
    const QVector<Row> rows{
        {C, false,
         kCreate + words("--source /more --exclude /data/tmp --file-mask-type skip --file-mask "
                         "*.bak;*.tmp --skip-folders cache*"),
         "",
         [](const BackupFile& p) {
             EXPECT_EQ(p.items(), QStringList({"/data", "/more"}));
             EXPECT_EQ(p.excludeItems(), QStringList{"/data/tmp"});
             EXPECT_EQ(p.filter(), QStringList({"*.bak", "*.tmp"}));
             EXPECT_EQ(p.filterType(), BackupFile::FilterType::SkipMatching);
             EXPECT_EQ(p.excludeFolderList(), QStringList{"cache*"});
             // Absent on create: no compression, no block level, AES-256.
             EXPECT_FALSE(p.useCompression());
             EXPECT_FALSE(p.useDifferentialUpload());
             EXPECT_EQ(p.encryption().encryptionType(), BackupEncyption::AES256);
         }},
        {C, false,
         kCreate + words("--encryption true --encryption-password pw --encryption-hint "
                         "hint --encryption-algorithm aes-128"),
         "",
         [](const BackupFile& p) {
             EXPECT_TRUE(p.encryption().isEnabled());
             EXPECT_EQ(p.encryption().password(), QStringLiteral("pw"));
             EXPECT_EQ(p.encryption().hint(), QByteArray("hint").toBase64());
             EXPECT_EQ(p.encryption().encryptionType(), BackupEncyption::AES128);
         }},
        // An edit that switches encryption on needs the plan's password.
        {E, false, id + words("--encryption true"), "Need to set encryption password.\n"},
        {E,
         false,
         id + words("--encryption-hint xpwx"),
         "The hint can't contain the password.\n",
         {},
         [](BackupFile& p) { p.encryption().setPassword(QStringLiteral("pw")); }},
        {E, false, id + words("--compression true"), "",
         [](const BackupFile& p) {
             EXPECT_TRUE(p.useCompression());
             // Unknown algorithms become AES-256 on any encryption change only.
             EXPECT_EQ(p.encryption().encryptionType(), BackupEncyption::Undefined);
         },
         [](BackupFile& p) {
             p.setUseCompression(false);
             p.encryption().setEncryptionType(BackupEncyption::Undefined);
         }},
        // New format: twelve of a unit read as years, the count kept.
        {C, true, kCreate + words("--nbf-retention-policy true --keep-backup-number 12"), "",
         [](const BackupFile& p) {
             EXPECT_EQ(p.retentionPolicy().type(), BackupRetentionPolicy::Type::Custom);
             EXPECT_TRUE(p.retentionPolicy().useDeleteOlder());
             EXPECT_EQ(
                 p.retentionPolicy().deleteFileAge(),
                 BackupRetentionPolicy::FileAge(12, BackupRetentionPolicy::FileAge::Unit::Year));
         },
         monthly},
        {C, true, kCreate + words("--keep-backup-number 5"),
         "Options [keep-backup-number] is mandatory with [nbf-retention-policy] true\nCould not "
         "create plan.\n"},
        {C, true, kCreate + words("--retention-policy Custom"),
         "Option [retention-policy] is used only for cbf.\nCould not create plan.\n"},
        {E, false, id + words("--nbf-retention-policy true"),
         "Option [nbf-retention-policy] is used only for nbf.\nCould not edit plan.\n"},
        // Without a delay, locally deleted files wait the kept-version count.
        {C, false,
         kCreate + words("--retention-policy Custom --keep-version true --keep-version-number 7 "
                         "--delete-locally true --delete-locally-delay 0 --delete-version-older "
                         "true --delete-version-older-age 2 --delete-version-older-type Week "
                         "--delete-date-type backup-date"),
         "",
         [](const BackupFile& p) {
             const BackupRetentionPolicy& r = p.retentionPolicy();
             EXPECT_EQ(r.type(), BackupRetentionPolicy::Type::Custom);
             EXPECT_EQ(r.keepVersion(), 7);
             EXPECT_EQ(r.deleteLocalyAfter(), 0);
             EXPECT_EQ(r.deleteFileAge(), BackupRetentionPolicy::FileAge(
                                              2, BackupRetentionPolicy::FileAge::Unit::Week));
             EXPECT_TRUE(r.useBackupDate());
         }},
        {E, false, id + words("--delete-locally true --delete-locally-delay 4"), "",
         [](const BackupFile& p) { EXPECT_EQ(p.retentionPolicy().deleteLocalyAfter(), 4); }},
        // Schedules.
        {C, false,
         kCreate + words("--schedule true --use-recurring-option true --frequency-value Weekly "
                         "--week-day-numbers 1,7 --occurs-at-option true --occurs-at-value 22:30 "
                         "--stop-auto-option true --stop-auto-hours-value 2 "
                         "--stop-auto-minutes-value 30"),
         "",
         [](const BackupFile& p) {
             const Schedule& s = p.schedule();
             EXPECT_TRUE(s.isEnable());
             EXPECT_EQ(s.type(), Schedule::Type::Recurring);
             EXPECT_EQ(s.frequencyType(), Schedule::FrequencyType::Weekly);
             QBitArray days(7);
             days.setBit(0);
             days.setBit(6);
             EXPECT_EQ(s.weeklyFrequency(), days);
             EXPECT_FALSE(s.dailyRecurrence());
             EXPECT_EQ(s.occursAt(), QTime(22, 30));
             EXPECT_EQ(s.stopAfter(), quint64(150) * 60000);
         }},
        // The full schedule takes the main schedule's time unless told.
        {C, false,
         kCreate + words("--block-level true --schedule true --use-recurring-option true "
                         "--frequency-value Daily --occurs-at-option true --occurs-at-value 01:15 "
                         "--full-schedule true --full-use-recurring-option true "
                         "--full-frequency-value Monthly --full-monthly-type-value 6 "
                         "--full-monthly-day 5 --full-monthly-every 2 --full-monthly-repeat-from "
                         "01.03.2024"),
         "",
         [](const BackupFile& p) {
             const Schedule& f = p.forceFullSchedule();
             EXPECT_TRUE(f.isEnable());
             EXPECT_EQ(f.occursAt(), QTime(1, 15));
             EXPECT_EQ(f.frequencyType(), Schedule::FrequencyType::Monthly);
             EXPECT_EQ(f.monthlyFrequency().weekNumber, Schedule::WeekNumber::Last);
             EXPECT_EQ(f.monthlyFrequency().dayOfWeek, 5);
             EXPECT_EQ(f.monthRepeat(), 2);
             EXPECT_EQ(f.monthRepeatFrom(), QDate(2024, 3, 1));
         }},
        {C, true,
         kCreate + words("--schedule true --frequency-value Monthly --monthly-type-value 0 "
                         "--monthly-day 31 --occurs-every-option true --occurs-every-value 15 "
                         "--occurs-every-from 08:00 --occurs-every-to 18:00"),
         "",
         [](const BackupFile& p) {
             const Schedule& s = p.schedule();
             EXPECT_EQ(s.type(), Schedule::Type::Recurring);
             EXPECT_EQ(s.frequencyType(), Schedule::FrequencyType::DayOfMonth);
             EXPECT_EQ(s.dayOfMonthFrequency(), 31);
             EXPECT_TRUE(s.dailyRecurrence());
             EXPECT_EQ(s.occursEvery(), Schedule::OccursEvery(15, QTime(8, 0), QTime(18, 0)));
         }},
        {C, false,
         kCreate + words("--schedule true --use-recurring-option true --frequency-value Monthly "
                         "--monthly-type-value 2 --monthly-day 9"),
         "Option [monthly-day] must be in range [1-7]\nCould not create plan.\n"},
        {C, false,
         kCreate + words("--schedule true --use-recurring-option true --frequency-value Monthly "
                         "--monthly-day 3"),
         "Option [monthly-type-value] option is mandatory with [frequency-value] Monthly.\nCould "
         "not create plan.\n"},
        {C, false,
         kCreate + words("--schedule true --use-recurring-option true --frequency-value Daily "
                         "--occurs-every-option true --occurs-every-value 5 --occurs-every-from "
                         "18:00 --occurs-every-to 08:00"),
         "Option [occurs-every-to] value cannot be less than option [occurs-every-from]\nCould "
         "not create plan.\n"},
        {C, false, kCreate + words("--frequency-value Daily"),
         "Options [frequency-value] should be used with option [use-recurring-option] equal "
         "'true'.\nCould not create plan.\n"},
        {C, false, kCreate + words("--specific-date-option true"),
         "Usage of [specific-date-value] is mandatory with [specific-date-option] true.\nCould "
         "not create plan.\n"},
        {C, false,
         kCreate + QStringList{"--specific-date-option", "true", "--specific-date-value",
                               "03.04.2022 14:05"},
         "",
         [](const BackupFile& p) {
             EXPECT_TRUE(p.schedule().isEnable());
             EXPECT_EQ(p.schedule().type(), Schedule::Type::SpecificDate);
             EXPECT_EQ(p.schedule().specificDate(), QDateTime(QDate(2022, 4, 3), QTime(14, 5)));
         }},
        {C, true, kCreate + words("--use-recurring-option true"),
         "[use-recurring-option] can't be used with NBF. Inherited from recurring schedule "
         "settings.\nCould not create plan.\n"},
        {C, true,
         kCreate + words("--schedule true --frequency-value Weekly --week-day-numbers 2 "
                         "--full-schedule true --full-frequency-value Daily"),
         "Wrong frequency type. Possible values: Monthly, Weekly and Daily (for cbf).\n)Could not "
         "create plan.\n"},
        {C, false, kCreate + words("--full-schedule true"),
         "Usage of full related options is mandatory with [block-level] true.\n"},
        {C, true, kCreate + words("--full-frequency-value Weekly"),
         "Usage of full related options is mandatory with [full-schedule] true.\n"},
        {C, false, kCreate + words("--block-level true --full-schedule true"),
         "Can not set full schedule. Option [schedule] true is mandatory.\n"},
        // Actions.
        {C, false, kCreate + words("--pre-action-enabled true"),
         "Usage of [pre-action-command] is mandatory with  [pre-action-enabled] true.\nCould not "
         "create plan.\n"},
        {C, false, kCreate + QStringList{"--post-action-command", tool + " --now"},
         "The path(s) specified for --pre-action-command or --post-action-command must match one "
         "of the formats: “\\“path/to/file\\” arg1 arg2” or '\"/path/to/file\" arg1 arg2'.\n"
         "Could not create plan.\n"},
        {C, false, kCreate + QStringList{"--pre-action-command", "\"/no/such/tool\" x"},
         "The file does not exist.\nCould not create plan.\n"},
        {C, false, kCreate + QStringList{"--pre-action-command", '"' + notExecutable + '"'},
         "The file does not have execute permission.\nCould not create plan.\n"},
        {C, false,
         kCreate + QStringList{"--pre-action-command", '"' + tool + "\" a b",
                               "--pre-action-exitonfail", "false", "--post-action-command",
                               '"' + tool + '"', "--post-action-enabled", "false"},
         "",
         [tool](const BackupFile& p) {
             EXPECT_TRUE(p.actions().pre().isEnabled());
             EXPECT_EQ(p.actions().pre().program(), '"' + tool + "\" a b");
             EXPECT_FALSE(p.actions().pre().terminateOnFailure());
             EXPECT_FALSE(p.actions().post().isEnabled());
         }},
    };
    for (const Row& row : rows) {
        Probe probe(row.action);
        BackupFile plan;
        if (row.prepare)
            row.prepare(plan);
        StdoutCapture capture;
        const int result = probe.process(row.args);
        QString thrown;
        if (result == CommandPlanBase::Valid) {
            try {
                probe.fillBackupPlan(plan, row.nbf);
            } catch (const QString& message) {
                thrown = message;
            }
        }
        const QString label = row.args.join(QLatin1Char(' '));
        EXPECT_EQ(QString::fromUtf8(capture.take()) + thrown, row.printed) << label.toStdString();
        if (thrown.isEmpty() && result == CommandPlanBase::Valid && row.check)
            row.check(plan);
    }
}

namespace {

// orvV2 run in this process against a service that answers from the fields
// below and records the plans it is asked to save.
class PlanCommands : public InProcessService
{
protected:
    void SetUp() override
    {
        InProcessService::SetUp();
        accounts = QJsonArray{
            QJsonObject{{"DisplayName", "Folder"}, {"ID", kFolder}, {"Type", 1}},
            QJsonObject{{"DisplayName", "Amazon"}, {"ID", kAmazon}, {"Type", 2}},
            QJsonObject{{"DisplayName", "Stack"}, {"ID", kStack}, {"Type", 6}},
        };
        registry.addTyped<GetConnection>(
            [this](const GetConnection::Request& request, const RequestContext&) {
                if (tryLater > 0) {
                    --tryLater;
                    return TypedOutcome::tryLater();
                }
                QJsonArray chosen;
                for (const QJsonValue& value : qAsConst(accounts))
                    if (request.id().isNull() || QUuid(value["ID"].toString()) == request.id())
                        chosen.append(value);
                GetConnection::Response response;
                response.setConnections(chosen);
                return TypedOutcome::done(response);
            });
        registry.addTyped<GetPlanList>([this](const GetPlanList::Request&, const RequestContext&) {
            GetPlanList::Response response;
            response.setPlanList(plans);
            return TypedOutcome::done(response);
        });
        registry.addNamed(Format::Plan::CommonEdit::Name, [this](const QJsonObject& params,
                                                                 const RequestContext&) {
            saved.append(params);
            if (listSaved)
                list(params["planXML"].toString());
            return refusal.isEmpty() ? NamedOutcome::success() : NamedOutcome::failure(refusal);
        });
        addRepository();
    }

    Outcome run(const QStringList& args)
    {
        const Outcome outcome = InProcessService::run(QStringList{QStringLiteral("plan")} + args);
        // create_backup tells its success before the service has the plan.
        QElapsedTimer waited;
        waited.start();
        while (saved.size() < expectedSaves && waited.elapsed() < 5000)
            QCoreApplication::processEvents(QEventLoop::WaitForMoreEvents, 50);
        return outcome;
    }

    static QJsonObject planRow(const QString& xml)
    {
        return Orv::Info::PlanObject::fromPlanXml(xml.toUtf8(), nullptr).toRow();
    }

    void addPlan(const Base& plan) { plans.append(planRow(plan.toXml())); }

    // A plan saved again replaces its row, as in the service.
    void list(const QString& xml)
    {
        const QJsonObject row = planRow(xml);
        for (int i = 0; i < plans.size(); ++i)
            if (plans.at(i)["ID"] == row["ID"]) {
                plans.replace(i, row);
                return;
            }
        plans.append(row);
    }

    // The repository of the account as the service reports it: bunches, the
    // restore points of each (keyed by bunch id), every generation, and the
    // paths that the points hold (each request recorded as "generation/point
    // password"). A bunch named in pointRefusals cannot list its points.
    void addRepository()
    {
        const auto listed = [](const QJsonArray& items) {
            Repo::ListResponse response;
            response.setItems(items);
            return TypedOutcome::done(response);
        };
        registry.addTyped<Repo::GetBunchList>(
            [this, listed](const Repo::RepositoryRequest&, const RequestContext&) {
                return listed(bunches);
            });
        registry.addTyped<Repo::GetBunchRestorePointList>(
            [this, listed](const Repo::RepositoryRequest& request, const RequestContext&) {
                if (pointRefusals.contains(request.bunchId()))
                    return TypedOutcome::failed(QStringLiteral("The bunch index is damaged"));
                return listed(points[request.bunchId()].toArray());
            });
        registry.addTyped<Repo::GetGenerationList>(
            [this, listed](const Repo::RepositoryRequest&, const RequestContext&) {
                return listed(generations);
            });
        registry.addTyped<Repo::GetRestorePointPaths>(
            [this, listed](const Repo::RepositoryRequest& request, const RequestContext&) {
                pathRequests.append(request.generationId() + '/' + request.restorePointId() + ' ' +
                                    request.password());
                QJsonArray found;
                for (const QString& path : request.paths())
                    if (heldPaths.contains(path))
                        found.append(path);
                return listed(found);
            });
        registry.addTyped<StartPlan>(
            [this](const StartPlan::Request& request, const RequestContext&) {
                started.append(request.planId());
                return TypedOutcome::done(Orv::Common::Communication::V2::Plan::EmptyResponse());
            });
    }

    QSharedPointer<BackupFile> savedPlan(int index) const
    {
        return Factory::create(saved.at(index)["planXML"].toString()).dynamicCast<BackupFile>();
    }

    QSharedPointer<RestoreFile> savedRestore() const
    {
        return Factory::create(saved.last()["planXML"].toString()).dynamicCast<RestoreFile>();
    }

    QJsonArray accounts;
    QJsonArray plans;
    QList<QJsonObject> saved;
    int expectedSaves = 0;
    int tryLater = 0;
    QString refusal;
    bool listSaved = false;
    QJsonArray bunches;
    QJsonObject points;
    QJsonArray generations;
    QStringList heldPaths;
    QStringList pointRefusals;
    QStringList pathRequests;
    QList<QUuid> started;
};

} // namespace

TEST_F(PlanCommands, CreateSendsThePlanWithItsPasswordInClear)
{
    tryLater = 2;
    expectedSaves = 1;
    const Outcome created =
        run(QStringList{"create_backup", "--confirm", "--account", kFolder} +
            words("--format nbf --name Docs --source /home/docs --encryption true "
                  "--encryption-password s3cret --schedule true --frequency-value Daily "
                  "--occurs-at-option true --occurs-at-value 03:00 --nbf-retention-policy true "
                  "--keep-backup-number 30 --keep-backup-type Day"));
    EXPECT_EQ(created.result, 0);
    // The service's own answer may or may not come before the run ends.
    EXPECT_TRUE(created.printed == kBanner + "\nSuccess.\n" ||
                created.printed == kBanner + "\nSuccess.\n\nSuccess\n")
        << created.printed.toStdString();
    ASSERT_EQ(saved.size(), 1);
    const QJsonObject params = saved.first();
    EXPECT_EQ(params["profile"].toString(), QString::fromLocal8Bit(qgetenv("USER")));
    EXPECT_TRUE(params["planXML"].toString().contains(QLatin1String("Form=\"plain\"")));
    const QSharedPointer<BackupFile> plan = savedPlan(0);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->id(), QUuid(params["ID"].toString()));
    EXPECT_EQ(plan->name(), QStringLiteral("Docs"));
    EXPECT_EQ(plan->storage(), QUuid(kFolder));
    EXPECT_EQ(plan->accountId(), QUuid(kFolder));
    EXPECT_TRUE(plan->isArchive());
    EXPECT_EQ(plan->items(), QStringList{"/home/docs"});
    EXPECT_EQ(plan->encryption().password(), QStringLiteral("s3cret"));
    EXPECT_EQ(plan->schedule().type(), Schedule::Type::Recurring);
    EXPECT_EQ(plan->schedule().occursAt(), QTime(3, 0));
    EXPECT_EQ(plan->retentionPolicy().deleteFileAge(),
              BackupRetentionPolicy::FileAge(30, BackupRetentionPolicy::FileAge::Unit::Day));
}

TEST_F(PlanCommands, ProviderRulesOfCreate)
{
    expectedSaves = 1;
    const Outcome amazon = run({"create_backup", "--confirm", "--account", "Amazon", "--format",
                                "cbf", "--source", "/srv", "--storage-class", "GlacierIR", "--sse",
                                "true", "--transfer-acceleration", "true"});
    EXPECT_EQ(amazon.result, 0);
    ASSERT_EQ(saved.size(), 1);
    const QSharedPointer<BackupFile> plan = savedPlan(0);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->storageInfo().storageClassAmazonS3(),
              BackupStorageInfo::AmazonS3StorageClass::GlacierIR);
    EXPECT_TRUE(plan->storageInfo().useSSE());
    EXPECT_TRUE(plan->storageInfo().useS3Accelerated());
    // A plan name made up from the time of creation.
    EXPECT_TRUE(plan->name().startsWith(QLatin1String("Backup plan ")))
        << plan->name().toStdString();

    expectedSaves = 0;
    struct Row
    {
        QStringList args;
        QByteArray printed;
    };
    const QStringList base{"create_backup", "--confirm", "--format", "cbf", "--source", "/srv"};
    const QVector<Row> refused{
        {base + QStringList{"--account", "Amazon", "--storage-class", "hot"},
         "Possible values for Amazon: Standard, StandardIA, OneZoneIA, Glacier, Intelligent, "
         "GlacierIR, DeepArchive. \n"},
        {base + QStringList{"--account", "Folder", "--storage-class", "cool"},
         "Warning: Storage class option should be use only for Amazon or Azure account.\n"},
        {base + QStringList{"--account", "Folder", "--sse", "false"},
         "Warning: SSE should be changed only for Amazon account.\n"},
        {base + QStringList{"--account", "Folder", "--transfer-acceleration", "true"},
         "Warning: Amazon S3 Transfer Acceleration should be changed only for Amazon account.\n"},
        {QStringList{"create_backup", "--confirm", "--format", "nbf", "--source", "/srv",
                     "--account", "Stack"},
         "OpenStack is not supported as a backup storage for backup plans in the new backup "
         "format."},
        {base + QStringList{"--account", "Nowhere"}, "Invalid account Id or account Name.\n"},
        {QStringList{"create_backup", "--format", "cbf", "--source", "/srv", "--account", "Folder"},
         "Please confirm create backup plan.\n"},
    };
    for (const Row& row : refused) {
        const Outcome outcome = run(row.args);
        EXPECT_EQ(outcome.result, -1) << row.printed.toStdString();
        EXPECT_EQ(outcome.printed, kBanner + row.printed + "\n");
    }
    EXPECT_EQ(saved.size(), 1);

    // Hidden by the branding, compression takes the branding's value and
    // cannot be asked for.
    instance.writeFile(QStringLiteral("config/branding.conf"),
                       "[Compression]\nVisible=false\nDefaultValue=true\n");
    TemporaryInstance::reloadAll();
    expectedSaves = 2;
    EXPECT_EQ(run(base + QStringList{"--account", "Folder"}).result, 0);
    ASSERT_EQ(saved.size(), 2);
    EXPECT_TRUE(savedPlan(1)->useCompression());
    const Outcome hidden = run(base + QStringList{"--account", "Folder", "--compression", "false"});
    EXPECT_EQ(hidden.printed,
              kBanner + "Warning: Compression cannot be changed, please contact your service "
                        "provider.\n\n");
}

TEST_F(PlanCommands, EditChangesOnlyWhatIsGivenAndKeepsThePlan)
{
    BackupFile nightly;
    nightly.setName(QStringLiteral("Nightly"));
    nightly.setStorage(QUuid(kFolder));
    nightly.setItems({QStringLiteral("/home")});
    nightly.encryption().setEnabled(true);
    nightly.encryption().setPassword(QStringLiteral("old-secret"));
    addPlan(nightly);
    BackupFile archive;
    archive.setName(QStringLiteral("Archive"));
    archive.setStorage(QUuid(kFolder));
    archive.setIsArchive(true);
    addPlan(archive);
    addPlan(archive);
    RestoreFile restore;
    restore.setName(QStringLiteral("Restore job"));
    addPlan(restore);

    expectedSaves = 1;
    const Outcome edited =
        run({"edit_backup", "--name", "Nightly", "--confirm", "--compression", "false",
             "--schedule", "true", "--use-recurring-option", "true", "--frequency-value", "Daily",
             "--occurs-every-option", "true", "--occurs-every-value", "30"});
    EXPECT_EQ(edited.result, 0);
    EXPECT_EQ(edited.printed, kBanner + "This changes will force a Full backup.\n\nSuccess.\n");
    ASSERT_EQ(saved.size(), 1);
    const QSharedPointer<BackupFile> plan = savedPlan(0);
    ASSERT_TRUE(plan);
    EXPECT_EQ(plan->id(), nightly.id());
    EXPECT_EQ(plan->name(), QStringLiteral("Nightly"));
    EXPECT_EQ(plan->items(), QStringList{"/home"});
    EXPECT_FALSE(plan->useCompression());
    EXPECT_EQ(plan->encryption().password(), QStringLiteral("old-secret"));
    EXPECT_TRUE(plan->schedule().dailyRecurrence());
    EXPECT_EQ(plan->schedule().occursEvery().minutes(), 30);

    // Found by id, the plan is renamed; the account may change too.
    expectedSaves = 2;
    EXPECT_EQ(run({"edit_backup", "--id", nightly.id().toString(), "--name", "Nightly 2",
                   "--account", "Amazon", "--confirm", "--sse", "true"})
                  .result,
              0);
    ASSERT_EQ(saved.size(), 2);
    EXPECT_EQ(savedPlan(1)->name(), QStringLiteral("Nightly 2"));
    EXPECT_EQ(savedPlan(1)->storage(), QUuid(kAmazon));
    EXPECT_TRUE(savedPlan(1)->storageInfo().useSSE());

    expectedSaves = 0;
    struct Row
    {
        QStringList args;
        QByteArray printed;
    };
    const QVector<Row> refused{
        {{"edit_backup", "--name", "Nightly"},
         "Please confirm edit plan:\nNightly " + nightly.id().toString().toUtf8()},
        {{"edit_backup", "--id", "nightly", "--confirm"}, "Invalid format data for ID: nightly"},
        {{"edit_backup", "--name", "Weekly", "--confirm"}, "Unknown plan name: Weekly"},
        {{"edit_backup", "--name", "Archive", "--confirm"},
         "We have two or more plans with the same names. Please use the plan id.\n"},
        {{"edit_backup", "--id", archive.id().toString(), "--confirm", "--block-level", "true"},
         "Option [block-level] only for cbf.\n"},
        {{"edit_backup", "--name", "Nightly", "--confirm", "--keep-backup-number", "3"},
         "[keep-backup-number] can't be used with CBF.\n"},
        {{"edit_backup", "--name", "Nightly", "--confirm", "--full-schedule", "true"},
         "Usage of full related options is mandatory with [block-level] true.\n"},
        {{"edit_backup", "--name", "Restore job", "--confirm"}, "Could not edit backup plan"},
    };
    for (const Row& row : refused) {
        const Outcome outcome = run(row.args);
        EXPECT_EQ(outcome.result, -1) << row.printed.toStdString();
        EXPECT_EQ(outcome.printed, kBanner + row.printed + "\n");
    }
    EXPECT_EQ(saved.size(), 2);

    refusal = QStringLiteral("The plan file cannot be written");
    expectedSaves = 3;
    const Outcome failed = run({"edit_backup", "--name", "Nightly", "--confirm"});
    EXPECT_EQ(failed.result, -1);
    EXPECT_EQ(failed.printed, kBanner + "The plan file cannot be written\n");
}

namespace {

QJsonObject point(const char* id, const char* generation, const QDateTime& start)
{
    Orv::Info::Repository::RestorePoint p;
    p.setId(QString::fromLatin1(id));
    p.setGenerationId(QString::fromLatin1(generation));
    p.setStartDate(start);
    return p.toJson();
}

QJsonObject generation(const char* id, bool encrypted, bool deepSync)
{
    Orv::Info::Repository::Generation g;
    g.setId(QString::fromLatin1(id));
    g.setEncrypted(encrypted);
    g.setDeepSync(deepSync);
    return g.toJson();
}

} // namespace

// create_restore and edit_restore against an account whose bunch "Nightly"
// has a clear point in generation g1 and a newer encrypted one in g2, and
// whose bunch "Dirty" waits for a deep sync: what reaches the service, and
// every refusal with its text.
TEST_F(PlanCommands, RestorePlansArePlacedOnAPointOfTheirBunch)
{
    const QString nightly = QStringLiteral("5f1e2d3c-4b5a-4968-8776-a5b4c3d2e1f0");
    const QDateTime first(QDate(2024, 3, 1), QTime(10, 0, 20));
    const QDateTime second(QDate(2024, 3, 2), QTime(22, 30, 5));
    bunches = {QJsonObject{{"id", nightly}, {"name", "Nightly"}},
               QJsonObject{{"id", "dirty"}, {"name", "Dirty"}},
               QJsonObject{{"id", "broken"}, {"name", "Broken"}}};
    points = {{nightly, QJsonArray{point("p1", "g1", first), point("p2", "g2", second)}},
              {"dirty", QJsonArray{point("p3", "g3", first)}}};
    generations = {generation("g1", false, false), generation("g2", true, false),
                   generation("g3", false, true)};
    heldPaths = QStringList{"/home/docs", "/etc/hosts"};
    pointRefusals = QStringList{"broken"};
    listSaved = true;
    // The locale's short form is that of the United States here.
    const QLocale locale;
    QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates));

    RestoreFile kept;
    kept.setName(QStringLiteral("Kept"));
    kept.setStorage(QUuid(kFolder));
    kept.setIsArchive(true);
    kept.setRestoreType(Restore::RestoreType::PointInTime);
    kept.setPointInTime(QDateTime(QDate(2024, 3, 1), QTime(10, 0)));
    kept.setRestorePoint(nightly + "/g1/p1");
    kept.setRestoreItems({QStringLiteral("/home/docs")});
    addPlan(kept);
    BackupFile backup;
    backup.setName(QStringLiteral("Docs backup"));
    addPlan(backup);

    const QByteArray saveAndRun = "\nSuccess\n\nSuccess.\n";
    using Check = std::function<void(const RestoreFile&)>;
    struct Row
    {
        QStringList args;
        QByteArray printed;
        Check check = {};
    };
    const QStringList create{"create_restore", "--confirm", "--account", "Folder"};
    const QStringList edit{"edit_restore", "--name", "Kept", "--confirm"};
    const QVector<Row> rows{
        {create + QStringList{"--bunch", "Nightly", "--restore-point", "01.03.2024 10:00", "--path",
                              "/home/docs/", "--path", "/nope", "--restore-location", "/srv/back",
                              "--overwrite-files", "true", "--restore-new-files", "true",
                              "--restore-deleted-files", "false"},
         "/nope - nothing to restore.\n" + saveAndRun,
         [&](const RestoreFile& p) {
             EXPECT_TRUE(p.isArchive());
             EXPECT_EQ(p.restorePoint(), nightly + "/g1/p1");
             EXPECT_EQ(p.restoreType(), Restore::RestoreType::PointInTime);
             EXPECT_EQ(p.restoreItems(), QStringList{"/home/docs"});
             EXPECT_FALSE(p.restoreToOriginalLocation());
             EXPECT_EQ(p.destination(), QStringLiteral("/srv/back"));
             EXPECT_FALSE(p.skipExistingFiles());
             EXPECT_TRUE(p.onlyNewFiles());
             EXPECT_FALSE(p.restoreDeletedFiles());
             EXPECT_FALSE(p.useEncryption());
             EXPECT_EQ(p.deletePlan(), Restore::DeleteType::Never);
             EXPECT_EQ(pathRequests.last(), QStringLiteral("g1/p1 "));
             EXPECT_TRUE(started.isEmpty()) << "a kept plan waits for its schedule";
         }},
        // The latest version stays the bunch alone; restore-once runs at once.
        {create + QStringList{"--bunch", "{" + nightly + "}", "--latest-version",
                              "--decryption-password", "pw", "--restore-once", "true"},
         saveAndRun,
         [&](const RestoreFile& p) {
             EXPECT_EQ(p.restorePoint(), nightly);
             EXPECT_EQ(p.restoreType(), Restore::RestoreType::LatestVersion);
             EXPECT_TRUE(p.useEncryption());
             EXPECT_EQ(p.encryptionPassword(), QStringLiteral("pw"));
             EXPECT_EQ(p.deletePlan(), Restore::DeleteType::OnSucceeds);
             EXPECT_TRUE(p.restoreToOriginalLocation());
             EXPECT_TRUE(p.skipExistingFiles());
             EXPECT_EQ(started, QList<QUuid>{p.id()});
         }},
        // The current format: the locale's form, no bunch, files deleted at
        // the source always come back.
        {create + QStringList{"--restore-point", "3/2/24 10:30 PM", "--restore-deleted-files",
                              "false", "--path", "/etc", "--name", "Legacy"},
         "\nSuccess\n\nSuccess.\n",
         [](const RestoreFile& p) {
             EXPECT_FALSE(p.isArchive());
             EXPECT_EQ(p.name(), QStringLiteral("Legacy"));
             EXPECT_EQ(p.pointInTime(), QDateTime(QDate(2024, 3, 2), QTime(22, 30)));
             EXPECT_TRUE(p.restorePoint().isEmpty());
             EXPECT_EQ(p.restoreItems(), QStringList{"/etc"});
             EXPECT_TRUE(p.restoreDeletedFiles());
         }},
        {QStringList{"create_restore", "--confirm", "--account", "Amazon", "--latest-version",
                     "--glacier-retrieval-rate", "Bulk", "--transfer-acceleration", "true"},
         saveAndRun,
         [](const RestoreFile& p) {
             EXPECT_EQ(p.storageInfo().type(), RestoreStorageInfo::Type::Bulk);
             EXPECT_TRUE(p.storageInfo().useS3Accelerated());
             EXPECT_TRUE(p.name().startsWith(QLatin1String("Restore plan ")))
                 << p.name().toStdString();
         }},
        {create + QStringList{"--bunch", "Nobody", "--latest-version"},
         "Bunch with specified id(or name) not found.\n"},
        {create + QStringList{"--bunch", "Broken", "--latest-version"},
         "Cannot get restore points for bunch.\n"},
        {create + QStringList{"--bunch", "Nightly", "--restore-point", "01.03.2024 10:01"},
         "Restore point does not exist. Please verify restore point time.\n"},
        {create + QStringList{"--bunch", "Dirty", "--latest-version"},
         "Restore plan can't be created. Need deep sync or deep sync in progress.\n"},
        {create + QStringList{"--bunch", "Nightly", "--latest-version"},
         "Could not create plan. Need value of the '--decryption-password' option.\n"},
        {create + QStringList{"--bunch", "Nightly", "--restore-point", "01.03.2024 10:00", "--path",
                              "/nope"},
         "/nope - nothing to restore.\nNothing to restore.\n"},
        {create + QStringList{"--restore-point", "31.02.2024 10:00"},
         "Wrong point in time specified. (Date format: 'dd.MM.yyyy hh:mm' or 'dd/MM/yy hh:mm "
         "XM')\n"},
        {create + QStringList{"--latest-version", "--overwrite-files", "false",
                              "--restore-new-files", "true"},
         "[ restore-new-files ] can't be set separately from [ overwrite-files ] true.\n"},
        {{"edit_restore", "--name", "Kept"},
         "Please confirm edit plan:\nKept " + kept.id().toString().toUtf8()},
        {{"edit_restore", "--name", "Docs backup", "--confirm"}, "Could not edit restore plan.\n"},
        {edit + QStringList{"--restore-point", "02.03.2024 22:30"},
         "Could not edit restore plan. Need value of the '--decryption-password' option.\n"},
        {edit + QStringList{"--bunch", "Broken"}, "Cannot get restore points for bunch.\n"},
        // Moved to the newer point, the plan keeps its paths, checked again.
        {edit + QStringList{"--restore-point", "02.03.2024 22:30", "--decryption-password", "pw",
                            "--overwrite-files", "false"},
         "\nSuccess.\n",
         [&](const RestoreFile& p) {
             EXPECT_EQ(p.id(), kept.id());
             EXPECT_EQ(p.restorePoint(), nightly + "/g2/p2");
             EXPECT_EQ(p.restoreItems(), QStringList{"/home/docs"});
             // An encrypted point is read with the password.
             EXPECT_EQ(pathRequests.last(), QStringLiteral("g2/p2 pw"));
             EXPECT_EQ(p.encryptionPassword(), QStringLiteral("pw"));
             EXPECT_TRUE(p.skipExistingFiles());
         }},
    };
    for (const Row& row : rows) {
        const int before = saved.size();
        const Outcome outcome = run(row.args);
        const std::string label = row.args.join(QLatin1Char(' ')).toStdString();
        EXPECT_EQ(outcome.printed.toStdString(),
                  (kBanner + row.printed + (row.check ? "" : "\n")).toStdString())
            << label;
        EXPECT_EQ(outcome.result, row.check ? 0 : -1) << label;
        ASSERT_EQ(saved.size(), before + (row.check ? 1 : 0)) << label;
        if (!row.check)
            continue;
        const QSharedPointer<RestoreFile> plan = savedRestore();
        ASSERT_TRUE(plan) << label;
        row.check(*plan);
    }
    QLocale::setDefault(locale);
}
