#include "CommandPlanBase.h"

#include "CommandChannel.h"
#include "Console.h"
#include "LoadPlanObject.h"
#include "account/Sync.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Communication/V2/GetConnection.h"
#include "orvCommon/Rebranding.h"
#include "orvInfo/Plan/Factory.h"

#include <QBitArray>
#include <QDateTime>
#include <QFileInfo>
#include <QJsonArray>

namespace Orv::CLI {

using namespace Orv::Info::Plan;
using GetConnection = Orv::Common::Communication::V2::GetConnection;
namespace Reply = Orv::Common::Communication::Commands::Format::Storage::GetConnection::Reply;

namespace {

const QString kSwitch = QStringLiteral("true/false");
const QString kTrue = QStringLiteral("true");
const QString kFalse = QStringLiteral("false");
const QString kDateTimeFormat = QStringLiteral("dd.MM.yyyy hh:mm");
const QString kDateFormat = QStringLiteral("dd.MM.yyyy");

// Branding keys of Amazon S3 Transfer Acceleration. Until the branding table
// carries them, the option stays visible and off by default.
const char kAccelerateVisible[] = "AmazonS3/S3Accelerate/Visible";
const char kAccelerateDefault[] = "AmazonS3/S3Accelerate/DefaultValue";

QCommandLineOption option(const QString& name, const QString& help,
                          const QString& valueName = QStringLiteral("value"))
{
    return QCommandLineOption(name, help, valueName);
}

// Integers of the command line: base 10, and a text that is not a number
// reads as 0.
int number(const QString& text)
{
    return text.toInt(nullptr, 10);
}

QTime timeOfDay(const QString& text)
{
    const QTime time = QTime::fromString(text, QStringLiteral("hh:mm"));
    return time.isValid() ? time : QTime::fromString(text, QStringLiteral("h:mm"));
}

// Masks and folder names are given as one value separated by semicolons
// ("*.bak; *.tmp") or as repeated options.
QStringList splitList(const QStringList& values)
{
    QStringList items;
    for (const QString& value : values)
        for (const QString& part : value.split(QLatin1Char(';')))
            if (!part.trimmed().isEmpty())
                items.append(part.trimmed());
    return items;
}

bool brandingFlag(const char* key, bool fallback)
{
    const QVariant value = Orv::Defines::Rebranding::instance()->value(key);
    return value.isValid() ? value.toBool() : fallback;
}

bool isAmazonS3(Kel::Cloud::Type type)
{
    using Kel::Cloud::Type;
    return type == Type::AmazonS3 || type == Type::AmazonS3Chinese || type == Type::AmazonS3UB;
}

const WordTable<bool>& deleteDateWords()
{
    static const WordTable<bool> table{{"backup-date", true}, {"modified-date", false}};
    return table;
}

} // namespace

CommandPlanBase::ScheduleOptions::ScheduleOptions(const QString& prefix)
    : schedule(prefix + QStringLiteral("schedule"),
               prefix.isEmpty()
                   ? QStringLiteral("Enables the schedule. Possible values: true, false")
                   : QStringLiteral("Enables the schedule of full backups. Possible values: true, "
                                    "false"),
               kSwitch),
      specificDateOption(prefix + QStringLiteral("specific-date-option"),
                         QStringLiteral("Runs once at a specific date (current backup format "
                                        "only). Possible values: true, false"),
                         kSwitch),
      specificDateValue(prefix + QStringLiteral("specific-date-value"),
                        QStringLiteral("The date and time of the run, dd.MM.yyyy hh:mm. "
                                       "Example: 03.04.2022 14:05"),
                        QStringLiteral("date")),
      stopAutoOption(prefix + QStringLiteral("stop-auto-option"),
                     QStringLiteral("Stops the run when it lasts longer than the limit. "
                                    "Possible values: true, false"),
                     kSwitch),
      stopAutoHours(prefix + QStringLiteral("stop-auto-hours-value"),
                    prefix.isEmpty() ? QStringLiteral("Hours of the limit (0-99)")
                                     : QStringLiteral("Hours of the limit (0-24)"),
                    QStringLiteral("hours")),
      stopAutoMinutes(prefix + QStringLiteral("stop-auto-minutes-value"),
                      prefix.isEmpty() ? QStringLiteral("Minutes of the limit (0-59)")
                                       : QStringLiteral("Minutes of the limit (0-60)"),
                      QStringLiteral("minutes")),
      useRecurringOption(prefix + QStringLiteral("use-recurring-option"),
                         QStringLiteral("Runs on a recurring schedule (current backup format "
                                        "only). Possible values: true, false"),
                         kSwitch),
      frequencyValue(prefix + QStringLiteral("frequency-value"),
                     prefix.isEmpty()
                         ? QStringLiteral("Frequency. Possible values: Daily, Weekly, Monthly")
                         : QStringLiteral("Frequency of full backups. Possible values: Weekly, "
                                          "Monthly; Daily for the current backup format only"),
                     QStringLiteral("frequency")),
      occursAtOption(prefix + QStringLiteral("occurs-at-option"),
                     QStringLiteral("Runs once a day at a time. Possible values: true, false"),
                     kSwitch),
      occursAtValue(prefix + QStringLiteral("occurs-at-value"),
                    QStringLiteral("The time of the run, hh:mm"), QStringLiteral("time")),
      occursEveryOption(prefix + QStringLiteral("occurs-every-option"),
                        QStringLiteral("Repeats the run within the day. Possible values: true, "
                                       "false"),
                        kSwitch),
      occursEveryValue(prefix + QStringLiteral("occurs-every-value"),
                       QStringLiteral("The period in minutes (1-60)"), QStringLiteral("minutes")),
      occursEveryFrom(prefix + QStringLiteral("occurs-every-from"),
                      QStringLiteral("Start of the daily window, hh:mm"), QStringLiteral("time")),
      occursEveryTo(prefix + QStringLiteral("occurs-every-to"),
                    QStringLiteral("End of the daily window, hh:mm"), QStringLiteral("time")),
      weekDayNumbers(prefix + QStringLiteral("week-day-numbers"),
                     QStringLiteral("With Weekly: the week days, 1 (Monday) to 7 (Sunday), "
                                    "separated by commas"),
                     QStringLiteral("days")),
      monthlyTypeValue(prefix + QStringLiteral("monthly-type-value"),
                       QStringLiteral("With Monthly: 0 = on the day of the month given by "
                                      "monthly-day; 1 to 6 = First, Second, Third, Fourth, "
                                      "Penultimate, Last week day of the month"),
                       QStringLiteral("type")),
      monthlyDay(prefix + QStringLiteral("monthly-day"),
                 QStringLiteral("With Monthly: the day of the week (1-7), or of the month "
                                "(1-31) when the type is 0"),
                 QStringLiteral("day")),
      monthlyEvery(prefix + QStringLiteral("monthly-every"),
                   QStringLiteral("With Monthly: every 1 to 12 months"), QStringLiteral("months")),
      monthlyRepeatFrom(prefix + QStringLiteral("monthly-repeat-from"),
                        QStringLiteral("With Monthly: the date the months count from, "
                                       "dd.MM.yyyy"),
                        QStringLiteral("date")),
      isFull(!prefix.isEmpty())
{
}

QList<const QCommandLineOption*> CommandPlanBase::ScheduleOptions::all() const
{
    return {&schedule,        &specificDateOption, &specificDateValue,  &stopAutoOption,
            &stopAutoHours,   &stopAutoMinutes,    &useRecurringOption, &frequencyValue,
            &occursAtOption,  &occursAtValue,      &occursEveryOption,  &occursEveryValue,
            &occursEveryFrom, &occursEveryTo,      &weekDayNumbers,     &monthlyTypeValue,
            &monthlyDay,      &monthlyEvery,       &monthlyRepeatFrom};
}

CommandPlanBase::CommandPlanBase(const QString& name, const QString& description, ActionType action,
                                 PlanType planType, QObject* parent)
    : CommandBase(name, description, parent),
      m_idOption(option(QStringLiteral("id"),
                        planType == Backup ? QStringLiteral("Backup plan ID")
                                           : QStringLiteral("Restore plan ID"),
                        QStringLiteral("id"))),
      m_nameOption(option(QStringLiteral("name"),
                          planType == Backup
                              ? QStringLiteral("Backup plan name. Default value is “Backup plan "
                                               "dd.mm.yyyy hh:mm:ss”")
                              : QStringLiteral("Restore plan name. Default value is “Restore plan "
                                               "dd.mm.yyyy hh:mm:ss”"),
                          QStringLiteral("name"))),
      m_formatOption(option(QStringLiteral("format"),
                            QStringLiteral("Sets the backup format. Possible values: nbf, cbf "
                                           "(default)"),
                            QStringLiteral("format"))),
      m_accountOption(option(QStringLiteral("account"),
                             QStringLiteral("Storage account. Possible values: AccountID or "
                                            "AccountName"),
                             QStringLiteral("account"))),
      m_storageClassOption(option(QStringLiteral("storage-class"),
                                  QStringLiteral("Sets the storage class. Amazon: Standard, "
                                                 "StandardIA, Intelligent, OneZoneIA, "
                                                 "DeepArchive, Glacier, GlacierIR; Azure: hot, "
                                                 "cool, archive"),
                                  QStringLiteral("storageClass"))),
      m_sseOption(option(QStringLiteral("sse"),
                         QStringLiteral("Sets the server-side encryption mode. Applies to Amazon "
                                        "S3 storage only, Possible values: true, false (default)"),
                         kSwitch)),
      m_transferAccelerationOption(option(QStringLiteral("transfer-acceleration"),
                                          QStringLiteral("Sets Amazon S3 Transfer Acceleration. "
                                                         "Possible values: true, false (default)"),
                                          QStringLiteral("transferAcceleration"))),
      m_syncOption(option(QStringLiteral("sync"),
                          planType == Backup
                              ? QStringLiteral("Runs sync before backup plan run. Possible "
                                               "values: on, off (default)")
                              : QStringLiteral("Runs sync before restore plan run. Possible "
                                               "values: on, off (default)"),
                          QStringLiteral("syncBeforeRun"))),
      m_sourceOption(option(QStringLiteral("source"),
                            QStringLiteral("Adds a file or directory to back up; repeat the "
                                           "option for each path"),
                            QStringLiteral("path"))),
      m_excludeOption(option(QStringLiteral("exclude"),
                             QStringLiteral("Excludes a file or directory from the backup; "
                                            "repeat the option for each path"),
                             QStringLiteral("path"))),
      m_hiddenOption(option(QStringLiteral("hidden"),
                            QStringLiteral("Disables/enables system and hidden file backup. "
                                           "Possible values: false, true (default, hidden files "
                                           "will be not backed up)"),
                            kSwitch)),
      m_skipInUseOption(option(QStringLiteral("skip-in-use"),
                               QStringLiteral("Disables/enables files in use backup. Possible "
                                              "values: true, false (default, files in use will "
                                              "be backed up)"),
                               kSwitch)),
      m_saveConfigOption(option(QStringLiteral("saveconfig"),
                                QStringLiteral("Saves the plan configuration to the backup "
                                               "storage (current backup format only). Possible "
                                               "values: true (default), false"),
                                kSwitch)),
      m_blockLevelOption(option(QStringLiteral("block-level"),
                                QStringLiteral("Enables block-level backup (current backup format "
                                               "only). Possible values: true, false (default)"),
                                kSwitch)),
      m_compressionOption(option(QStringLiteral("compression"),
                                 QStringLiteral("Enables compression. Possible values: true "
                                                "(default), false"),
                                 kSwitch)),
      m_encryptionOption(option(QStringLiteral("encryption"),
                                QStringLiteral("Enables backup encryption. Possible values: true, "
                                               "false (default)"),
                                kSwitch)),
      m_encryptionAlgorithmOption(option(QStringLiteral("encryption-algorithm"),
                                         QStringLiteral("Sets the encryption algorithm. Possible "
                                                        "values: aes-128, aes-192, aes-256 "
                                                        "(default)"),
                                         QStringLiteral("algorithm"))),
      m_encryptionPasswordOption(option(QStringLiteral("encryption-password"),
                                        QStringLiteral("Sets the encryption password. This "
                                                       "parameter is used with the encryption "
                                                       "enabled"),
                                        QStringLiteral("encryptionPassword"))),
      m_encryptionHintOption(option(QStringLiteral("encryption-hint"),
                                    QStringLiteral("Sets the hint for encryption password. This "
                                                   "parameter is used with the encryption "
                                                   "enabled"),
                                    QStringLiteral("encryptionHint"))),
      m_emptyOption(option(QStringLiteral("empty"),
                           QStringLiteral("Enables empty directory backup. Possible values: true, "
                                          "false (default)"),
                           kSwitch)),
      m_fileMaskTypeOption(option(QStringLiteral("file-mask-type"),
                                  QStringLiteral("Sets the filter type for file mask. Possible "
                                                 "values: skip, backup, all(default)."),
                                  QStringLiteral("type"))),
      m_fileMaskOption(option(QStringLiteral("file-mask"),
                              QStringLiteral("Sets the file mask. Examples: *.bak; *.tmp"),
                              QStringLiteral("mask"))),
      m_skipFoldersOption(option(QStringLiteral("skip-folders"),
                                 QStringLiteral("Skips specified directories. Examples: abc*; "
                                                "xyz*"),
                                 QStringLiteral("skipFolders"))),
      m_retentionPolicyOption(option(QStringLiteral("retention-policy"),
                                     QStringLiteral("Sets the retention policy mode. Possible "
                                                    "values: Default(default), Custom"),
                                     QStringLiteral("policy"))),
      m_deleteVersionOlderOption(option(QStringLiteral("delete-version-older"),
                                        QStringLiteral("Enables \"Delete version older than\". "
                                                       "Possible values: true, false"),
                                        QStringLiteral("deleteVersionOlder"))),
      m_deleteVersionOlderAgeOption(option(QStringLiteral("delete-version-older-age"),
                                           QStringLiteral("The age of the versions to delete, "
                                                          "a number of periods (1 or more)"),
                                           QStringLiteral("age"))),
      m_deleteVersionOlderTypeOption(option(QStringLiteral("delete-version-older-type"),
                                            QStringLiteral("The period of that age. Possible "
                                                           "values: Day, Week, Month"),
                                            QStringLiteral("type"))),
      m_keepLastVersionOption(option(QStringLiteral("keep-last-version"),
                                     QStringLiteral("Always keeps the last version. Possible "
                                                    "values: true, false"),
                                     QStringLiteral("keepLastVersion"))),
      m_keepVersionOption(option(QStringLiteral("keep-version"),
                                 QStringLiteral("Keeps a number of versions. Possible values: "
                                                "true, false"),
                                 QStringLiteral("keepVersion"))),
      m_keepVersionNumberOption(option(QStringLiteral("keep-version-number"),
                                       QStringLiteral("The number of versions to keep (1 or "
                                                      "more)"),
                                       QStringLiteral("number"))),
      m_deleteLocallyOption(option(QStringLiteral("delete-locally"),
                                   QStringLiteral("Enables the delete locally deleted files "
                                                  "option. Possible values: true, false "
                                                  "(default)"),
                                   kSwitch)),
      m_deleteLocallyDelayOption(option(QStringLiteral("delete-locally-delay"),
                                        QStringLiteral("Days before files deleted locally are "
                                                       "deleted in storage (0-99999)"),
                                        QStringLiteral("delay"))),
      m_deleteDateTypeOption(option(QStringLiteral("delete-date-type"),
                                    QStringLiteral("What the age counts from. Possible values: "
                                                   "backup-date, modified-date (default)"),
                                    QStringLiteral("type"))),
      m_nbfRetentionPolicyOption(option(QStringLiteral("nbf-retention-policy"),
                                        QStringLiteral("Enables retention policy in plans in the "
                                                       "new backup format. Possible values: "
                                                       "true, false (default)"),
                                        QStringLiteral("true"))),
      m_keepBackupTypeOption(option(QStringLiteral("keep-backup-type"),
                                    QStringLiteral("The period backups are kept for. Possible "
                                                   "values: Year, Month, Week, Day"),
                                    QStringLiteral("type"))),
      m_keepBackupNumberOption(option(QStringLiteral("keep-backup-number"),
                                      QStringLiteral("The number of those periods (1-999)"),
                                      QStringLiteral("number"))),
      m_runMissedOption(option(QStringLiteral("run-missed-option"),
                               QStringLiteral("Executes the plan if it was missed for some "
                                              "reason. Possible values: true, false (default)"),
                               kSwitch)),
      m_schedule(QString()), m_fullSchedule(QStringLiteral("full-")),
      m_detailedReportOption(option(QStringLiteral("detailed-report"),
                                    planType == Backup
                                        ? QStringLiteral("Generates the detailed report of the "
                                                         "backup plan execution. Possible values: "
                                                         "true, false (default)")
                                        : QStringLiteral("Generates the detailed report of the "
                                                         "restore plan execution. Possible "
                                                         "values: true, false (default)"),
                                    kSwitch)),
      m_notificationOption(option(QStringLiteral("notification"),
                                  QStringLiteral("Sets the condition for sending notification "
                                                 "email. Possible values: \"error-only\" "
                                                 "(default) (when plan fails), \"on\" (in all "
                                                 "cases), \"off\""),
                                  QStringLiteral("notification"))),
      m_subjectOption(option(QStringLiteral("subject"),
                             QStringLiteral("Sets the subject of notification email. Available "
                                            "variables for this parameter:: "
                                            "%COMPUTER_NAME%\t%RESULT%\t%PLAN_NAME%\n"),
                             QStringLiteral("subject"))),
      m_consistencyCheckOption(option(QStringLiteral("consistency-check"),
                                      QStringLiteral("Configures the full consistency check "
                                                     "execution. Possible values; true "
                                                     "(default), false"),
                                      kSwitch)),
      m_preActionEnabledOption(option(QStringLiteral("pre-action-enabled"),
                                      QStringLiteral("Enables the execution of a pre-backup "
                                                     "action. Possible values: true, false "
                                                     "(default)"),
                                      kSwitch)),
      m_preActionCommandOption(option(QStringLiteral("pre-action-command"),
                                      QStringLiteral("The command to run before the backup: "
                                                     "'\"/path/to/file\" arg1 arg2'"),
                                      QStringLiteral("command"))),
      m_preActionExitOnFailOption(option(QStringLiteral("pre-action-exitonfail"),
                                         QStringLiteral("true: the plan does not run if the "
                                                        "pre-action fails; false: it runs "
                                                        "regardless"),
                                         kSwitch)),
      m_postActionEnabledOption(option(QStringLiteral("post-action-enabled"),
                                       QStringLiteral("Enables the execution of a post-backup "
                                                      "action. Possible values: true, false "
                                                      "(default)"),
                                       kSwitch)),
      m_postActionCommandOption(option(QStringLiteral("post-action-command"),
                                       QStringLiteral("The command to run after the backup: "
                                                      "'\"/path/to/file\" arg1 arg2'"),
                                       QStringLiteral("command"))),
      m_postActionRunOnFailOption(option(QStringLiteral("post-action-runonfail"),
                                         QStringLiteral("true: the post-action runs whatever "
                                                        "the plan's result; false: not after a "
                                                        "failed plan"),
                                         kSwitch)),
      m_confirmOption(QStringLiteral("confirm"), QStringLiteral("Confirm create or edit plan")),
      m_latestVersionOption(QStringLiteral("latest-version"),
                            QStringLiteral("Restores the latest version")),
      m_bunchOption(option(QStringLiteral("bunch"),
                           QStringLiteral("Bunch (backup plan)  ID or plan name. Applies to the "
                                          "new backup format only"),
                           QStringLiteral("Bunch"))),
      m_restorePointOption(option(QStringLiteral("restore-point"),
                                  QStringLiteral("Restore point. Display format: dd.mm.yyyy "
                                                 "hh:mm Or mm/dd/yy hh:mm AP"),
                                  QStringLiteral("restorePoint"))),
      m_restoreLocationOption(option(QStringLiteral("restore-location"),
                                     QStringLiteral("Sets the path to restore"),
                                     QStringLiteral("location"))),
      m_overwriteFilesOption(option(QStringLiteral("overwrite-files"),
                                    QStringLiteral("Overwrite existing files upon restore. "
                                                   "Possible values: true/false"),
                                    kSwitch)),
      m_restoreNewFilesOption(option(QStringLiteral("restore-new-files"),
                                     QStringLiteral("Enables or disables the restore new files "
                                                    "only option. Possible values: true, false."),
                                     QStringLiteral("files"))),
      m_decryptionPasswordOption(option(QStringLiteral("decryption-password"),
                                        QStringLiteral("Sets password for encrypted backups to "
                                                       "decrypt them upon restore"),
                                        QStringLiteral("password"))),
      m_glacierRetrievalRateOption(option(QStringLiteral("glacier-retrieval-rate"),
                                          QStringLiteral("Sets retrieval mode (Expedited, "
                                                         "Standard, Bulk, Skip) from long-term "
                                                         "storage classes. Applies to Amazon S3 "
                                                         "storage only"),
                                          QStringLiteral("mode"))),
      m_restoreOnceOption(option(QStringLiteral("restore-once"),
                                 QStringLiteral("Restores only once without saving the plan "
                                                "(true), or saves the restore plan (false, "
                                                "default)"),
                                 kSwitch)),
      m_restoreDeletedFilesOption(option(QStringLiteral("restore-deleted-files"),
                                         QStringLiteral("Restore files that had been deleted at "
                                                        "the source location prior to the "
                                                        "backup. true(default, always true for "
                                                        "legacy restore format), false."),
                                         kSwitch)),
      m_actionType(action), m_planType(planType)
{
    const bool backup = planType == Backup;
    registerOption(m_idOption);
    registerOption(m_nameOption);
    registerOption(m_formatOption);
    registerOption(m_accountOption);
    if (backup)
        registerOption(m_storageClassOption);
    if (backup)
        registerOption(m_sseOption);
    registerOption(m_transferAccelerationOption);
    registerOption(m_syncOption);
    if (backup) {
        for (const QCommandLineOption* item :
             {&m_sourceOption, &m_excludeOption, &m_hiddenOption, &m_skipInUseOption,
              &m_saveConfigOption, &m_blockLevelOption, &m_compressionOption, &m_encryptionOption,
              &m_encryptionAlgorithmOption})
            registerOption(*item);
        // Secrets never reach the log.
        registerOption(m_encryptionPasswordOption, false);
        registerOption(m_encryptionHintOption, false);
        for (const QCommandLineOption* item :
             {&m_emptyOption, &m_fileMaskTypeOption, &m_fileMaskOption, &m_skipFoldersOption,
              &m_retentionPolicyOption, &m_deleteVersionOlderOption, &m_deleteVersionOlderAgeOption,
              &m_deleteVersionOlderTypeOption, &m_keepLastVersionOption, &m_keepVersionOption,
              &m_keepVersionNumberOption, &m_deleteLocallyOption, &m_deleteLocallyDelayOption,
              &m_deleteDateTypeOption, &m_nbfRetentionPolicyOption, &m_keepBackupTypeOption,
              &m_keepBackupNumberOption})
            registerOption(*item);
    }
    registerOption(m_runMissedOption);
    for (const QCommandLineOption* item : m_schedule.all())
        registerOption(*item);
    if (backup)
        for (const QCommandLineOption* item : m_fullSchedule.all())
            registerOption(*item);
    registerOption(m_detailedReportOption);
    registerOption(m_notificationOption);
    registerOption(m_subjectOption);
    if (backup)
        for (const QCommandLineOption* item :
             {&m_consistencyCheckOption, &m_preActionEnabledOption, &m_preActionCommandOption,
              &m_preActionExitOnFailOption, &m_postActionEnabledOption, &m_postActionCommandOption,
              &m_postActionRunOnFailOption})
            registerOption(*item);
    registerOption(m_confirmOption);
    if (backup)
        return;
    for (const QCommandLineOption* item :
         {&m_latestVersionOption, &m_bunchOption, &m_restorePointOption, &m_restoreLocationOption,
          &m_overwriteFilesOption, &m_restoreNewFilesOption})
        registerOption(*item);
    registerOption(m_decryptionPasswordOption, false);
    for (const QCommandLineOption* item :
         {&m_glacierRetrievalRateOption, &m_restoreOnceOption, &m_restoreDeletedFilesOption})
        registerOption(*item);
}

void CommandPlanBase::registerOption(const QCommandLineOption& option, bool logValue)
{
    addOption(option, logValue);
    m_registered.insert(option.names().first());
}

const QMap<QString, CommandPlanBase::PlanFormat>& CommandPlanBase::planFormatWords()
{
    static const QMap<QString, PlanFormat> words{{QStringLiteral("cbf"), Cbf},
                                                 {QStringLiteral("nbf"), Nbf}};
    return words;
}

const QMap<QString, CommandPlanBase::FileMaskType>& CommandPlanBase::fileMaskTypeWords()
{
    static const QMap<QString, FileMaskType> words{{QStringLiteral("backup"), BackupMatching},
                                                   {QStringLiteral("skip"), SkipMatching},
                                                   {QStringLiteral("all"), AllFiles}};
    return words;
}

const QMap<QString, CommandPlanBase::AgeType>& CommandPlanBase::ageTypeWords()
{
    static const QMap<QString, AgeType> words{{QStringLiteral("Day"), Day},
                                              {QStringLiteral("Week"), Week},
                                              {QStringLiteral("Month"), Month},
                                              {QStringLiteral("Year"), Year}};
    return words;
}

bool CommandPlanBase::given(const QCommandLineOption& option) const
{
    return m_registered.contains(option.names().first()) && m_parser.isSet(option);
}

QString CommandPlanBase::valueOf(const QCommandLineOption& option) const
{
    return given(option) ? m_parser.value(option).trimmed() : QString();
}

QStringList CommandPlanBase::valuesOf(const QCommandLineOption& option) const
{
    QStringList values;
    if (!given(option))
        return values;
    const QStringList all = m_parser.values(option);
    for (const QString& value : all)
        if (!value.trimmed().isEmpty())
            values.append(value.trimmed());
    return values;
}

bool CommandPlanBase::isTrue(const QCommandLineOption& option) const
{
    return given(option) && m_parser.value(option) == kTrue;
}

QString CommandPlanBase::bracketed(const QCommandLineOption& option)
{
    return QStringLiteral("[") + joinedNames(option) + QStringLiteral("]");
}

bool CommandPlanBase::anyFullOptionGiven() const
{
    for (const QCommandLineOption* item : m_fullSchedule.all())
        if (given(*item))
            return true;
    return false;
}

void CommandPlanBase::failPlan() const
{
    throw m_actionType == Create ? QStringLiteral("Could not create plan.\n")
                                 : QStringLiteral("Could not edit plan.\n");
}

// ---------------------------------------------------------------------------
// Validation

int CommandPlanBase::process(const QStringList& words)
{
    const int parsed = exec(words);
    if (parsed != Started)
        return parsed;
    return checkPlanOptions();
}

int CommandPlanBase::checkPlanOptions()
{
    const bool create = m_actionType == Create;
    const bool restore = m_planType == Restore;
    if (!create && !given(m_nameOption) && !given(m_idOption)) {
        print(QStringLiteral("Options [ id ] or [ name ] is mandatory"));
        return Conflict;
    }
    if (restore && given(m_latestVersionOption) && given(m_restorePointOption)) {
        print(QStringLiteral("Parameter conflict: [ latest-version ] and [ restore-point ]"));
        return Conflict;
    }
    if (restore && create && !given(m_latestVersionOption) && !given(m_restorePointOption)) {
        print(QStringLiteral("Options [ latest-version ] or [ restore-point ] is mandatory"));
        return Conflict;
    }
    if (create && !given(m_accountOption)) {
        print(QStringLiteral("Option [ account ] is mandatory"));
        return MandatoryMissing;
    }
    const QString possible =
        QStringLiteral(" (Possible: ") + m_formatOption.valueName() + QStringLiteral(")");
    if (create && !restore && !given(m_formatOption)) {
        print(QStringLiteral("Options [ format ] is mandatory") + possible);
        return MandatoryMissing;
    }
    if (given(m_formatOption) && !planFormatWords().contains(valueOf(m_formatOption))) {
        print(QStringLiteral("Options [ format ] has wrong value") + possible);
        return WrongValue;
    }
    if (create && !restore && !given(m_sourceOption)) {
        print(QStringLiteral("Option [ source ] is mandatory"));
        return MandatoryMissing;
    }
    if (given(m_storageClassOption)) {
        const QString word = valueOf(m_storageClassOption);
        if (!BackupStorageInfo::amazonS3Words().value(word) &&
            !BackupStorageInfo::azureBlobWords().value(word)) {
            print(QStringLiteral("Options [ storage-class ] has wrong value.\n"
                                 "Possible values:\n"
                                 "Amazon (Standard, StandardIA, OneZoneIA, Glacier, Intelligent, "
                                 "GlacierIR, DeepArchive) \n"
                                 "Azure (hot, cool, archive) \n"));
            return WrongValue;
        }
    }
    if (given(m_glacierRetrievalRateOption) &&
        !RestoreStorageInfo::words().value(valueOf(m_glacierRetrievalRateOption))) {
        print(QStringLiteral("Options [ glacier-retrieval-rate ] has wrong value.\n"
                             "Possible values:\n"
                             "Expedited, Standard, Bulk, Skip.\n"));
        return WrongValue;
    }
    if (!checkSwitches({&m_restoreOnceOption, &m_sseOption, &m_transferAccelerationOption,
                        &m_syncOption, &m_hiddenOption, &m_skipInUseOption, &m_saveConfigOption,
                        &m_blockLevelOption, &m_emptyOption, &m_runMissedOption,
                        &m_detailedReportOption, &m_consistencyCheckOption,
                        &m_preActionEnabledOption, &m_postActionEnabledOption,
                        &m_restoreDeletedFilesOption, &m_encryptionOption}))
        return WrongValue;
    const int encryption = checkEncryptionOptions();
    if (encryption != Valid)
        return encryption;
    if (!checkRetentionOptions())
        return WrongValue;
    if (!checkScheduleParameters(m_schedule) || !checkScheduleParameters(m_fullSchedule))
        return WrongValue;
    if (given(m_notificationOption) &&
        !Notification::words().value(valueOf(m_notificationOption))) {
        print(QStringLiteral("Wrong notification type. Possible values: on, off, error-only.\n"));
        return WrongValue;
    }
    const bool allFiles = valueOf(m_fileMaskTypeOption) == QLatin1String("all");
    if (!allFiles && given(m_fileMaskTypeOption) != given(m_fileMaskOption)) {
        print(QStringLiteral("Parameter conflict: [ file-mask-type ] and [ file-mask ] can't be "
                             "set separately.\n"));
        return Conflict;
    }
    if (given(m_fileMaskTypeOption) &&
        !fileMaskTypeWords().contains(valueOf(m_fileMaskTypeOption))) {
        print(QStringLiteral("File mask type must be \"all\", \"backup\" or \"skip\"\n"));
        return WrongValue;
    }
    if (given(m_restoreNewFilesOption) && !given(m_overwriteFilesOption)) {
        print(QStringLiteral("Parameter conflict: [ restore-new-files ] can't be set separately "
                             "from [ overwrite-files ].\n"));
        return Conflict;
    }
    return Valid;
}

bool CommandPlanBase::checkSwitches(const QList<const QCommandLineOption*>& switches)
{
    for (const QCommandLineOption* item : switches)
        if (given(*item) && !setSwitchModeOption(*item, false))
            return false;
    return true;
}

int CommandPlanBase::checkEncryptionOptions()
{
    const QString password = valueOf(m_encryptionPasswordOption);
    if (m_actionType == Create && isTrue(m_encryptionOption) &&
        !given(m_encryptionPasswordOption)) {
        print(QStringLiteral("Encryption password need to be specified.\n"));
        return WrongValue;
    }
    if (given(m_encryptionPasswordOption) && given(m_encryptionHintOption) &&
        valueOf(m_encryptionHintOption).contains(password, Qt::CaseSensitive)) {
        print(QStringLiteral("The hint can't contain the password.\n"));
        return WrongValue;
    }
    if (given(m_encryptionAlgorithmOption) &&
        !BackupEncyption::words().value(valueOf(m_encryptionAlgorithmOption))) {
        print(QStringLiteral("Wrong encryption algorithm.\nPossible values for ") +
              joinedNames(m_encryptionAlgorithmOption) +
              QStringLiteral(" option are: aes-128, aes-192, aes-256.\n"));
        return WrongValue;
    }
    return Valid;
}

bool CommandPlanBase::checkRetentionOptions()
{
    if (given(m_retentionPolicyOption) &&
        !BackupRetentionPolicy::words().value(valueOf(m_retentionPolicyOption))) {
        print(QStringLiteral("Options [ retention-policy ] must be set to one of the values: "
                             "\"Default\", \"Custom\".\n"));
        return false;
    }
    if (!checkSwitches({&m_nbfRetentionPolicyOption, &m_deleteVersionOlderOption,
                        &m_deleteLocallyOption, &m_keepLastVersionOption, &m_keepVersionOption}))
        return false;
    if (given(m_deleteVersionOlderTypeOption)) {
        const QString word = valueOf(m_deleteVersionOlderTypeOption);
        if (!ageTypeWords().contains(word) || ageTypeWords().value(word) == Year) {
            print(QStringLiteral("Delete version older type has wrong value\n"
                                 "Possible: \"Month\", \"Week\", \"Day\"\n"));
            return false;
        }
    }
    if (given(m_keepBackupTypeOption) &&
        !ageTypeWords().contains(valueOf(m_keepBackupTypeOption))) {
        print(QStringLiteral("Keep backup type has wrong value\n"
                             "Possible: \"Year\", \"Month\", \"Week\", \"Day\"\n"));
        return false;
    }
    if (given(m_deleteVersionOlderAgeOption) &&
        number(valueOf(m_deleteVersionOlderAgeOption)) < 1) {
        print(QStringLiteral("Delete version older age must be greater or equal \"1\"\n"));
        return false;
    }
    if (given(m_deleteDateTypeOption) &&
        !deleteDateWords().value(valueOf(m_deleteDateTypeOption))) {
        const QStringList words = deleteDateWords().words();
        print(QStringLiteral("Delete data type must be '") + words.at(0) +
              QStringLiteral("' or '") + words.at(1) + QStringLiteral("'.\n"));
        return false;
    }
    if (given(m_keepVersionNumberOption) && number(valueOf(m_keepVersionNumberOption)) < 1) {
        print(QStringLiteral("Keep version number must be greater or equal \"1\"\n"));
        return false;
    }
    if (given(m_keepBackupNumberOption)) {
        const int count = number(valueOf(m_keepBackupNumberOption));
        if (count < 1 || count > 999) {
            print(QStringLiteral("Keep backup number must be in rang [1-999].\n"));
            return false;
        }
    }
    if (isTrue(m_deleteLocallyOption) && !given(m_deleteLocallyDelayOption)) {
        print(QStringLiteral("--delete-locally-delay option is mandatory.\n"));
        return false;
    }
    if (given(m_deleteLocallyDelayOption)) {
        const int delay = number(valueOf(m_deleteLocallyDelayOption));
        if (delay < 0 || delay > 99999) {
            print(QStringLiteral("Delete locally files count must be in range from \"0\" to "
                                 "\"99999\"\n"));
            return false;
        }
    }
    return true;
}

bool CommandPlanBase::checkScheduleParameters(const ScheduleOptions& o)
{
    const auto inRange = [](const QString& text, int low, int high) {
        const int value = number(text);
        return value >= low && value <= high;
    };
    if (given(o.specificDateValue) &&
        !QDateTime::fromString(valueOf(o.specificDateValue), kDateTimeFormat).isValid()) {
        print(QStringLiteral("Use \"dd.MM.yyyy hh:mm\" format for schedule specific date\n"));
        return false;
    }
    if (given(o.stopAutoHours) && !inRange(valueOf(o.stopAutoHours), 0, 99)) {
        print(QStringLiteral("Set hours for stop auto (\"0\" - \"99\")"));
        return false;
    }
    if (given(o.stopAutoMinutes) && !inRange(valueOf(o.stopAutoMinutes), 0, 59)) {
        print(QStringLiteral("Set minutes for stop auto (\"0\" - \"59\")"));
        return false;
    }
    if (given(o.frequencyValue)) {
        const auto frequency = Schedule::frequencyWords().value(valueOf(o.frequencyValue));
        if (!frequency || *frequency == Schedule::FrequencyType::DayOfMonth) {
            print(QStringLiteral("Wrong frequency type. Possible values: Monthly, Weekly and "
                                 "Daily (for cbf).\n)"));
            return false;
        }
    }
    if (given(o.occursAtValue) && !timeOfDay(valueOf(o.occursAtValue)).isValid()) {
        print(QStringLiteral("Use \"HH:mm\" format for occurs at value\n"));
        return false;
    }
    if (given(o.occursEveryTo) && !timeOfDay(valueOf(o.occursEveryTo)).isValid()) {
        print(QStringLiteral("Use \"HH:mm\" format for occurs every to\n"));
        return false;
    }
    if (given(o.occursEveryFrom) && !timeOfDay(valueOf(o.occursEveryFrom)).isValid()) {
        print(QStringLiteral("Use \"HH:mm\" format for occurs every from\n"));
        return false;
    }
    if (given(o.occursEveryValue) && !inRange(valueOf(o.occursEveryValue), 1, 60)) {
        print(QStringLiteral("Set valid value for occurs every (\"1\" - \"60\")"));
        return false;
    }
    if (given(o.weekDayNumbers)) {
        const QStringList days = valueOf(o.weekDayNumbers).split(QLatin1Char(','));
        for (const QString& day : days) {
            if (!inRange(day.trimmed(), 1, 7)) {
                print(QStringLiteral("Set valid value for week day number (\"1\" - \"7\")"));
                return false;
            }
        }
    }
    if (given(o.monthlyTypeValue) && !inRange(valueOf(o.monthlyTypeValue), 0, 6)) {
        print(QStringLiteral("Option [") + joinedNames(o.monthlyTypeValue) +
              QStringLiteral("] must be in range [0-6]\n"));
        return false;
    }
    // The day of the month is allowed here; which range applies is known
    // only with the monthly type, when the schedule is written.
    if (given(o.monthlyDay) && !inRange(valueOf(o.monthlyDay), 1, 31)) {
        print(QStringLiteral("Set valid value for option [") + joinedNames(o.monthlyDay) +
              QStringLiteral("] - (\"1\" - \"7\")\n"));
        return false;
    }
    if (given(o.monthlyEvery) && !inRange(valueOf(o.monthlyEvery), 1, 12)) {
        print(QStringLiteral("Set valid value for option [") + joinedNames(o.monthlyEvery) +
              QStringLiteral("] - (\"1\" - \"12\")\n"));
        return false;
    }
    if (given(o.monthlyRepeatFrom) &&
        !QDate::fromString(valueOf(o.monthlyRepeatFrom), kDateFormat).isValid()) {
        print(QStringLiteral("Use \"dd.MM.yyyy\" format for option [") +
              joinedNames(o.monthlyRepeatFrom) + QStringLiteral("]"));
        return false;
    }
    return true;
}

// ---------------------------------------------------------------------------
// Schedule

namespace {

// "Options [a] or [b] should be used with option [switch] equal 'true'."
QString usedWithMessage(const QStringList& names, const QString& switchName, const QString& value)
{
    return QStringLiteral("Options ") + names.join(QStringLiteral(" or ")) +
           QStringLiteral(" should be used with option ") + switchName +
           QStringLiteral(" equal '") + value + QStringLiteral("'.\n");
}

} // namespace

bool CommandPlanBase::setSchedule(Schedule& schedule, bool isNbf, const ScheduleOptions& o,
                                  const QTime& defaultTime)
{
    if (isNbf) {
        for (const QCommandLineOption* item :
             {&o.specificDateOption, &o.specificDateValue, &o.useRecurringOption}) {
            if (given(*item)) {
                print(bracketed(*item) + QStringLiteral(" can't be used with NBF. Inherited from "
                                                        "recurring schedule settings.\n"));
                return false;
            }
        }
    }
    const bool wasRecurring = schedule.type() == Schedule::Type::Recurring;
    if (given(o.schedule))
        schedule.setEnable(valueOf(o.schedule) != kFalse);
    if (!setScheduleKind(schedule, o, isNbf) || !setStopAfter(schedule, o))
        return false;
    const bool recurring = schedule.type() == Schedule::Type::Recurring;
    QStringList recurrenceGiven;
    for (const QCommandLineOption* item :
         {&o.frequencyValue, &o.occursAtOption, &o.occursAtValue, &o.occursEveryOption,
          &o.occursEveryValue, &o.occursEveryFrom, &o.occursEveryTo, &o.weekDayNumbers,
          &o.monthlyTypeValue, &o.monthlyDay, &o.monthlyEvery, &o.monthlyRepeatFrom})
        if (given(*item))
            recurrenceGiven.append(bracketed(*item));
    if (!recurring) {
        if (recurrenceGiven.isEmpty())
            return true;
        print(usedWithMessage(recurrenceGiven, bracketed(isNbf ? o.schedule : o.useRecurringOption),
                              kTrue));
        return false;
    }
    if (!given(o.frequencyValue) && !wasRecurring) {
        print(QStringLiteral("Usage of ") + bracketed(o.frequencyValue) +
              QStringLiteral(" is mandatory with ") +
              bracketed(isNbf ? o.schedule : o.useRecurringOption) + QStringLiteral(" true.\n"));
        return false;
    }
    return setDailyTimes(schedule, o, defaultTime, !wasRecurring) &&
           setRecurrence(schedule, o, isNbf);
}

bool CommandPlanBase::setScheduleKind(Schedule& schedule, const ScheduleOptions& o, bool isNbf)
{
    if (isNbf) {
        // The new format knows only recurring schedules.
        if (isTrue(o.schedule))
            schedule.setType(Schedule::Type::Recurring);
        return true;
    }
    const bool edit = m_actionType == Edit;
    if (isTrue(o.specificDateOption) && isTrue(o.useRecurringOption)) {
        print(QStringLiteral("Options [ ") + joinedNames(o.specificDateOption) +
              QStringLiteral(" ] and [ ") + joinedNames(o.useRecurringOption) +
              QStringLiteral(" ] are incompatible.\n"));
        return false;
    }
    const bool wasSpecific = schedule.type() == Schedule::Type::SpecificDate;
    const bool specificOn =
        isTrue(o.specificDateOption) || (edit && !given(o.specificDateOption) && wasSpecific);
    if (given(o.specificDateValue) && !specificOn) {
        print(usedWithMessage({bracketed(o.specificDateValue)}, bracketed(o.specificDateOption),
                              kTrue));
        return false;
    }
    if (isTrue(o.specificDateOption) && !given(o.specificDateValue) && !(edit && wasSpecific)) {
        print(QStringLiteral("Usage of ") + bracketed(o.specificDateValue) +
              QStringLiteral(" is mandatory with ") + bracketed(o.specificDateOption) +
              QStringLiteral(" true.\n"));
        return false;
    }
    if (given(o.specificDateValue)) {
        const QDateTime date = QDateTime::fromString(valueOf(o.specificDateValue), kDateTimeFormat);
        if (!date.isValid()) {
            print(QStringLiteral("Use \"dd.MM.yyyy hh:mm\" format for schedule specific date\n"));
            return false;
        }
        schedule.setSpecificDate(date);
    }
    if (isTrue(o.specificDateOption)) {
        schedule.setEnable(true);
        schedule.setType(Schedule::Type::SpecificDate);
    }
    if (isTrue(o.useRecurringOption)) {
        schedule.setEnable(true);
        schedule.setType(Schedule::Type::Recurring);
    }
    return true;
}

bool CommandPlanBase::setStopAfter(Schedule& schedule, const ScheduleOptions& o)
{
    const bool edit = m_actionType == Edit;
    const bool wasOn = schedule.isStopAfterEnabled();
    const bool on = isTrue(o.stopAutoOption) || (edit && !given(o.stopAutoOption) && wasOn);
    const bool valueGiven = given(o.stopAutoHours) || given(o.stopAutoMinutes);
    if (given(o.stopAutoOption) && !isTrue(o.stopAutoOption)) {
        schedule.setStopAfter(0);
        return true;
    }
    if (valueGiven && !on) {
        QStringList names;
        for (const QCommandLineOption* item : {&o.stopAutoHours, &o.stopAutoMinutes})
            if (given(*item))
                names.append(bracketed(*item));
        print(usedWithMessage(names, bracketed(o.stopAutoOption), kTrue));
        return false;
    }
    if (!on)
        return true;
    if (!valueGiven && !wasOn) {
        print(QStringLiteral("Usage of ") + bracketed(o.stopAutoHours) + QStringLiteral(" or ") +
              bracketed(o.stopAutoMinutes) + QStringLiteral(" is mandatory with ") +
              bracketed(o.stopAutoOption) + QStringLiteral(" true.\n"));
        return false;
    }
    const quint64 hours = given(o.stopAutoHours) ? quint64(number(valueOf(o.stopAutoHours)))
                                                 : schedule.stopAfterHours();
    const quint64 minutes = given(o.stopAutoMinutes)
                                ? quint64(number(valueOf(o.stopAutoMinutes)))
                                : quint64(wasOn ? schedule.stopAfterMinutes() : 0);
    schedule.setStopAfter((hours * 60 + minutes) * 60000);
    return true;
}

bool CommandPlanBase::setDailyTimes(Schedule& schedule, const ScheduleOptions& o,
                                    const QTime& defaultTime, bool newlyRecurring)
{
    if (isTrue(o.occursAtOption) && isTrue(o.occursEveryOption)) {
        print(QStringLiteral("Options [ ") + joinedNames(o.occursAtOption) +
              QStringLiteral(" ] and [ ") + joinedNames(o.occursEveryOption) +
              QStringLiteral(" ] are incompatible.\n"));
        return false;
    }
    // On an edit the mode the plan already has counts as switched on.
    const bool keep = m_actionType == Edit && !newlyRecurring;
    const bool atOn = isTrue(o.occursAtOption) ||
                      (keep && !isTrue(o.occursEveryOption) && !schedule.dailyRecurrence());
    const bool everyOn = isTrue(o.occursEveryOption) ||
                         (keep && !isTrue(o.occursAtOption) && schedule.dailyRecurrence());
    if (given(o.occursAtValue) && !atOn) {
        print(usedWithMessage({bracketed(o.occursAtValue)}, bracketed(o.occursAtOption), kTrue));
        return false;
    }
    QStringList everyGiven;
    for (const QCommandLineOption* item :
         {&o.occursEveryValue, &o.occursEveryFrom, &o.occursEveryTo})
        if (given(*item))
            everyGiven.append(bracketed(*item));
    if (!everyGiven.isEmpty() && !everyOn) {
        print(usedWithMessage(everyGiven, bracketed(o.occursEveryOption), kTrue));
        return false;
    }
    if (isTrue(o.occursEveryOption) && !given(o.occursEveryValue) && !schedule.dailyRecurrence()) {
        print(QStringLiteral("Usage of ") + bracketed(o.occursEveryValue) +
              QStringLiteral(" is mandatory with ") + bracketed(o.occursEveryOption) +
              QStringLiteral(" true.\n"));
        return false;
    }
    if (everyOn) {
        const Schedule::OccursEvery current = schedule.occursEvery();
        const Schedule::OccursEvery every(
            given(o.occursEveryValue) ? number(valueOf(o.occursEveryValue)) : current.minutes(),
            given(o.occursEveryFrom) ? timeOfDay(valueOf(o.occursEveryFrom)) : current.fromTime(),
            given(o.occursEveryTo) ? timeOfDay(valueOf(o.occursEveryTo)) : current.toTime());
        if (every.toTime() < every.fromTime()) {
            print(QStringLiteral("Option ") + bracketed(o.occursEveryTo) +
                  QStringLiteral(" value cannot be less than option ") +
                  bracketed(o.occursEveryFrom) + QStringLiteral("\n"));
            return false;
        }
        schedule.setDailyRecurrence(true);
        schedule.setOccursEvery(every);
        return true;
    }
    if (isTrue(o.occursAtOption) || newlyRecurring) {
        schedule.setDailyRecurrence(false);
        schedule.setOccursAt(given(o.occursAtValue) ? timeOfDay(valueOf(o.occursAtValue))
                                                    : defaultTime);
    } else if (given(o.occursAtValue)) {
        schedule.setOccursAt(timeOfDay(valueOf(o.occursAtValue)));
    }
    return true;
}

bool CommandPlanBase::setRecurrence(Schedule& schedule, const ScheduleOptions& o, bool isNbf)
{
    using Frequency = Schedule::FrequencyType;
    const Frequency before = schedule.frequencyType();
    const bool wasMonthly = before == Frequency::Monthly || before == Frequency::DayOfMonth;
    Frequency frequency = before;
    if (given(o.frequencyValue))
        frequency = *Schedule::frequencyWords().value(valueOf(o.frequencyValue));
    const bool monthly = frequency == Frequency::Monthly || frequency == Frequency::DayOfMonth;
    const bool changed = given(o.frequencyValue) && frequency != before && !(monthly && wasMonthly);
    const QString frequencyName = bracketed(o.frequencyValue);
    // Full backups of the new format run on whole weeks or months.
    if (o.isFull && isNbf && frequency == Frequency::Daily) {
        print(QStringLiteral("Wrong frequency type. Possible values: Monthly, Weekly and Daily "
                             "(for cbf).\n)"));
        return false;
    }
    if (given(o.weekDayNumbers) && frequency != Frequency::Weekly) {
        print(usedWithMessage({bracketed(o.weekDayNumbers)}, frequencyName,
                              QStringLiteral("Weekly")));
        return false;
    }
    QStringList monthlyGiven;
    for (const QCommandLineOption* item :
         {&o.monthlyTypeValue, &o.monthlyDay, &o.monthlyEvery, &o.monthlyRepeatFrom})
        if (given(*item))
            monthlyGiven.append(bracketed(*item));
    if (!monthlyGiven.isEmpty() && !monthly) {
        print(usedWithMessage(monthlyGiven, frequencyName, QStringLiteral("Monthly")));
        return false;
    }
    schedule.setFrequencyType(frequency == Frequency::DayOfMonth ? Frequency::Monthly : frequency);
    if (frequency == Frequency::Weekly) {
        if (!given(o.weekDayNumbers)) {
            if (!changed && schedule.weeklyFrequency().count(true) > 0)
                return true;
            print(QStringLiteral("Option [") + joinedNames(o.weekDayNumbers) +
                  QStringLiteral("] option is mandatory with ") + frequencyName +
                  QStringLiteral(" Weekly.\n"));
            return false;
        }
        QBitArray days(7);
        const QStringList numbers = valueOf(o.weekDayNumbers).split(QLatin1Char(','));
        for (const QString& day : numbers)
            days.setBit(number(day.trimmed()) - 1);
        schedule.setWeeklyFrequency(days);
        return true;
    }
    if (!monthly)
        return true;
    for (const QCommandLineOption* item : {&o.monthlyTypeValue, &o.monthlyDay}) {
        if (!given(*item) && (changed || !wasMonthly)) {
            print(QStringLiteral("Option [") + joinedNames(*item) +
                  QStringLiteral("] option is mandatory with ") + frequencyName +
                  QStringLiteral(" Monthly.\n"));
            return false;
        }
    }
    const int type =
        given(o.monthlyTypeValue)
            ? number(valueOf(o.monthlyTypeValue))
            : (before == Frequency::DayOfMonth ? 0 : int(schedule.monthlyFrequency().weekNumber));
    const int day = given(o.monthlyDay)
                        ? number(valueOf(o.monthlyDay))
                        : (before == Frequency::DayOfMonth ? schedule.dayOfMonthFrequency()
                                                           : schedule.monthlyFrequency().dayOfWeek);
    if (type == 0) {
        if (day < 1 || day > 31) {
            print(QStringLiteral("Option [") + joinedNames(o.monthlyDay) +
                  QStringLiteral("] must be in range [1-31]\n"));
            return false;
        }
        schedule.setFrequencyType(Frequency::DayOfMonth);
        schedule.setDayOfMonthFrequency(day);
    } else {
        if (day < 1 || day > 7) {
            print(QStringLiteral("Option [") + joinedNames(o.monthlyDay) +
                  QStringLiteral("] must be in range [1-7]\n"));
            return false;
        }
        schedule.setFrequencyType(Frequency::Monthly);
        schedule.setMonthlyFrequency(Schedule::WeekNumber(type), day);
    }
    QDate from = schedule.monthRepeatFrom();
    if (given(o.monthlyRepeatFrom))
        from = QDate::fromString(valueOf(o.monthlyRepeatFrom), kDateFormat);
    else if (!from.isValid())
        from = QDate::currentDate();
    schedule.setMonthRepeat(
        given(o.monthlyEvery) ? number(valueOf(o.monthlyEvery)) : schedule.monthRepeat(), from);
    return true;
}

// ---------------------------------------------------------------------------
// Retention

bool CommandPlanBase::setRetentionPolicy(BackupFile& plan, bool isNbf)
{
    BackupRetentionPolicy& policy = plan.retentionPolicy();
    if (given(m_nbfRetentionPolicyOption)) {
        if (!isNbf) {
            print(QStringLiteral("Option [nbf-retention-policy] is used only for nbf.\n"));
            return false;
        }
        policy.setType(valueOf(m_nbfRetentionPolicyOption) == kFalse
                           ? BackupRetentionPolicy::Type::Default
                           : BackupRetentionPolicy::Type::Custom);
    }
    if (given(m_retentionPolicyOption)) {
        if (isNbf) {
            print(QStringLiteral("Option [retention-policy] is used only for cbf.\n"));
            return false;
        }
        policy.setType(*BackupRetentionPolicy::words().value(valueOf(m_retentionPolicyOption)));
    }
    if (isNbf)
        return setRetentionNbf(plan);
    setRetentionCbf(plan);
    return true;
}

bool CommandPlanBase::setRetentionNbf(BackupFile& plan)
{
    BackupRetentionPolicy& policy = plan.retentionPolicy();
    const bool custom = policy.type() == BackupRetentionPolicy::Type::Custom;
    policy.setUseDeleteOlder(custom);
    BackupRetentionPolicy::FileAge age = policy.deleteFileAge();
    for (const QCommandLineOption* item : {&m_keepBackupNumberOption, &m_keepBackupTypeOption}) {
        if (given(*item) && !custom) {
            print(QStringLiteral("Options ") + bracketed(*item) +
                  QStringLiteral(" is mandatory with [nbf-retention-policy] true\n"));
            return false;
        }
    }
    if (given(m_keepBackupNumberOption))
        age.setCount(number(valueOf(m_keepBackupNumberOption)));
    if (given(m_keepBackupTypeOption))
        age.setUnit(BackupRetentionPolicy::FileAge::Unit(
            ageTypeWords().value(valueOf(m_keepBackupTypeOption))));
    else if (age.count() % 12 == 0)
        // Twelve months, or any whole multiple, read as years; the count is
        // kept as it was given.
        age.setUnit(BackupRetentionPolicy::FileAge::Unit::Year);
    policy.setDeleteFileAge(age);
    return true;
}

void CommandPlanBase::setRetentionCbf(BackupFile& plan)
{
    BackupRetentionPolicy& policy = plan.retentionPolicy();
    if (given(m_deleteVersionOlderOption))
        policy.setUseDeleteOlder(isTrue(m_deleteVersionOlderOption));
    BackupRetentionPolicy::FileAge age = policy.deleteFileAge();
    if (given(m_deleteVersionOlderAgeOption))
        age.setCount(number(valueOf(m_deleteVersionOlderAgeOption)));
    const QString unit = valueOf(m_deleteVersionOlderTypeOption);
    if (ageTypeWords().contains(unit) && ageTypeWords().value(unit) != Year)
        age.setUnit(BackupRetentionPolicy::FileAge::Unit(ageTypeWords().value(unit)));
    policy.setDeleteFileAge(age);
    if (given(m_keepLastVersionOption))
        policy.setUseKeepLastVersion(isTrue(m_keepLastVersionOption));
    if (given(m_keepVersionOption)) {
        const bool keep = isTrue(m_keepVersionOption);
        policy.setUseKeepVersion(keep);
        if (keep && given(m_keepVersionNumberOption))
            policy.setKeepVersion(number(valueOf(m_keepVersionNumberOption)));
    }
    if (plan.type() != Orv::Info::Plan::PlanType::Backup)
        return;
    if (given(m_deleteLocallyOption)) {
        const bool remove = isTrue(m_deleteLocallyOption);
        policy.setUseDeleteLocaly(remove);
        // Without a delay the kept-version count stands in for it.
        if (remove)
            policy.setDeleteLocalyAfter(given(m_deleteLocallyDelayOption)
                                            ? number(valueOf(m_deleteLocallyDelayOption))
                                            : policy.keepVersion());
    }
    if (given(m_deleteDateTypeOption))
        policy.setUseBackupDate(*deleteDateWords().value(valueOf(m_deleteDateTypeOption)));
}

// ---------------------------------------------------------------------------
// Setters

void CommandPlanBase::setCompression(BackupFile& plan)
{
    const auto* branding = Orv::Defines::Rebranding::instance();
    if (!branding->value(RebrandingKeys::Compression::Visible).toBool()) {
        plan.setUseCompression(branding->value(RebrandingKeys::Compression::DefaultValue).toBool());
        if (given(m_compressionOption))
            throw QStringLiteral("Warning: Compression cannot be changed, please contact your "
                                 "service provider.\n");
        return;
    }
    const bool compress = isTrue(m_compressionOption);
    if (compress == plan.useCompression())
        return;
    plan.setUseCompression(compress);
    m_planChanged = true;
}

void CommandPlanBase::setEncryption(BackupFile& plan)
{
    BackupEncyption& encryption = plan.encryption();
    if (!Orv::Defines::Rebranding::instance()
             ->value(RebrandingKeys::Encryption::Visible)
             .toBool()) {
        encryption.setEnabled(false);
        if (given(m_encryptionOption))
            throw QStringLiteral("Warning: Encryption cannot be changed, please contact your "
                                 "service provider");
        return;
    }
    const auto change = [this](auto current, auto wanted, auto set) {
        if (current == wanted)
            return;
        set(wanted);
        m_planChanged = true;
    };
    if (given(m_encryptionOption))
        change(encryption.isEnabled(), isTrue(m_encryptionOption),
               [&](bool on) { encryption.setEnabled(on); });
    BackupEncyption::Type algorithm = encryption.encryptionType();
    if (given(m_encryptionAlgorithmOption))
        algorithm = *BackupEncyption::words().value(valueOf(m_encryptionAlgorithmOption));
    else if (m_actionType == Create || algorithm == BackupEncyption::Undefined)
        algorithm = BackupEncyption::AES256;
    change(encryption.encryptionType(), algorithm,
           [&](BackupEncyption::Type type) { encryption.setEncryptionType(type); });
    if (given(m_encryptionPasswordOption))
        change(encryption.password(), valueOf(m_encryptionPasswordOption),
               [&](const QString& password) { encryption.setPassword(password); });
    if (given(m_encryptionHintOption)) {
        const QString hint = valueOf(m_encryptionHintOption);
        if (!encryption.password().isEmpty() && hint.contains(encryption.password()))
            throw QStringLiteral("The hint can't contain the password.\n");
        change(encryption.hint(), hint.toUtf8().toBase64(),
               [&](const QByteArray& stored) { encryption.setHint(stored); });
    }
    if (encryption.isEnabled() && encryption.password().isEmpty())
        throw QStringLiteral("Need to set encryption password.\n");
}

void CommandPlanBase::setBackupEmptyFolders(BackupFile& plan)
{
    if (given(m_emptyOption))
        plan.setBackupEmptyFolders(isTrue(m_emptyOption));
}

void CommandPlanBase::initIncludeExcludeItems(BackupFile& plan)
{
    if (given(m_sourceOption))
        plan.setItems(valuesOf(m_sourceOption));
    if (given(m_excludeOption))
        plan.setExcludeItems(valuesOf(m_excludeOption));
    if (m_actionType == Create && plan.items().isEmpty())
        throw QStringLiteral("At least one file or directory for backup should be specified.\n");
    if (given(m_skipFoldersOption))
        plan.setExcludeFolderList(splitList(valuesOf(m_skipFoldersOption)));
    if (given(m_fileMaskTypeOption)) {
        const FileMaskType type = fileMaskTypeWords().value(valueOf(m_fileMaskTypeOption));
        plan.setFilterType(type == BackupMatching ? BackupFile::FilterType::BackupMatching
                           : type == SkipMatching ? BackupFile::FilterType::SkipMatching
                                                  : BackupFile::FilterType::NoFilter);
    }
    if (given(m_fileMaskOption))
        plan.setFilter(splitList(valuesOf(m_fileMaskOption)));
}

QString CommandPlanBase::getProgramPath(const QString& commandLine)
{
    const int open = commandLine.indexOf(QLatin1Char('"'));
    if (open < 0)
        return QString();
    const int close = commandLine.indexOf(QLatin1Char('"'), open + 1);
    return close < 0 ? commandLine.mid(open + 1) : commandLine.mid(open + 1, close - open - 1);
}

bool CommandPlanBase::checkFilePermissions(const QString& commandLine)
{
    if (!commandLine.startsWith(QLatin1Char('"'))) {
        print(QStringLiteral("The path(s) specified for --pre-action-command or "
                             "--post-action-command must match one of the formats: "
                             "“\\“path/to/file\\” arg1 arg2” or '\"/path/to/file\" arg1 "
                             "arg2'.\n"));
        return false;
    }
    const QFileInfo program(getProgramPath(commandLine));
    if (!program.exists()) {
        print(QStringLiteral("The file does not exist.\n"));
        return false;
    }
    if (!program.isExecutable()) {
        print(QStringLiteral("The file does not have execute permission.\n"));
        return false;
    }
    return true;
}

bool CommandPlanBase::initAction(Action& action, const QCommandLineOption& enabled,
                                 const QCommandLineOption& command)
{
    const QString commandLine = valueOf(command);
    if (!commandLine.isEmpty()) {
        if (!checkFilePermissions(commandLine))
            return false;
        action.setProgram(commandLine);
        action.setEnabled(true);
    }
    // An edit may switch on again the program the plan already has.
    const bool hasProgram = m_actionType == Edit && !action.program().isEmpty();
    if (isTrue(enabled) && commandLine.isEmpty() && !hasProgram) {
        print(QStringLiteral("Usage of [") + joinedNames(command) +
              QStringLiteral("] is mandatory with  [") + joinedNames(enabled) +
              QStringLiteral("] true.\n"));
        return false;
    }
    if (given(enabled))
        action.setEnabled(isTrue(enabled));
    return true;
}

bool CommandPlanBase::initPreAction(BackupFile& plan)
{
    PreAction& pre = plan.actions().pre();
    if (!initAction(pre, m_preActionEnabledOption, m_preActionCommandOption))
        return false;
    if (given(m_preActionExitOnFailOption))
        pre.setTerminateOnFailure(isTrue(m_preActionExitOnFailOption));
    return true;
}

bool CommandPlanBase::initPostAction(BackupFile& plan)
{
    PostAction& post = plan.actions().post();
    if (!initAction(post, m_postActionEnabledOption, m_postActionCommandOption))
        return false;
    if (given(m_postActionRunOnFailOption))
        post.setRunOnBackupFailure(isTrue(m_postActionRunOnFailOption));
    return true;
}

void CommandPlanBase::setStorageOptions(BackupFile& plan, Kel::Cloud::Type type)
{
    BackupStorageInfo& storage = plan.storageInfo();
    const bool sseVisible = brandingFlag(RebrandingKeys::SSE::Visible, true);
    if (!sseVisible) {
        storage.setUseSSE(brandingFlag(RebrandingKeys::SSE::DefaultValue, false));
        if (given(m_sseOption))
            throw QStringLiteral("Warning: SSE cannot be changed, please contact your service "
                                 "provider.\n");
    }
    const bool accelerateVisible = brandingFlag(kAccelerateVisible, true);
    if (!accelerateVisible) {
        storage.setUseS3Accelerated(brandingFlag(kAccelerateDefault, false));
        if (given(m_transferAccelerationOption))
            throw QStringLiteral("Warning: Amazon S3 Transfer Acceleration cannot be changed, "
                                 "please contact your service provider.\n");
    }
    const bool amazon = isAmazonS3(type);
    if (given(m_storageClassOption)) {
        const QString word = valueOf(m_storageClassOption);
        if (amazon) {
            const auto storageClass = BackupStorageInfo::amazonS3Words().value(word);
            if (!storageClass)
                throw QStringLiteral("Possible values for Amazon: Standard, StandardIA, "
                                     "OneZoneIA, Glacier, Intelligent, GlacierIR, DeepArchive. \n");
            storage.setStorageClassAmazonS3(*storageClass);
        } else if (type == Kel::Cloud::Type::AzureBlob) {
            const auto tier = BackupStorageInfo::azureBlobWords().value(word);
            if (!tier)
                throw QStringLiteral("Possible values for Azure: hot, cool, archive. \n");
            storage.setStorageClassAzureBlob(*tier);
        } else {
            throw QStringLiteral("Warning: Storage class option should be use only for Amazon or "
                                 "Azure account.\n");
        }
    }
    if (!amazon && given(m_sseOption))
        throw QStringLiteral("Warning: SSE should be changed only for Amazon account.\n");
    if (!amazon && given(m_transferAccelerationOption))
        throw QStringLiteral("Warning: Amazon S3 Transfer Acceleration should be changed only for "
                             "Amazon account.\n");
    if (amazon && given(m_sseOption))
        storage.setUseSSE(isTrue(m_sseOption));
    if (amazon && given(m_transferAccelerationOption))
        storage.setUseS3Accelerated(isTrue(m_transferAccelerationOption));
}

void CommandPlanBase::fillBackupPlan(BackupFile& plan, bool isNbf)
{
    const bool create = m_actionType == Create;
    if (given(m_syncOption))
        plan.setSyncBeforeRun(isTrue(m_syncOption));
    initIncludeExcludeItems(plan);
    if (!initPreAction(plan) || !initPostAction(plan))
        failPlan();
    if (given(m_hiddenOption))
        plan.setExcludeSystemAndHidden(isTrue(m_hiddenOption));
    if (given(m_skipInUseOption))
        plan.setSkipInUseFiles(isTrue(m_skipInUseOption));
    if (given(m_saveConfigOption))
        plan.setSavePlanInCloud(isTrue(m_saveConfigOption));
    const bool full = anyFullOptionGiven();
    if (full && isNbf && !given(m_fullSchedule.schedule))
        throw QStringLiteral("Usage of full related options is mandatory with [full-schedule] "
                             "true.\n");
    const bool blockLevel = given(m_blockLevelOption) || create ? isTrue(m_blockLevelOption)
                                                                : plan.useDifferentialUpload();
    if (full && !isNbf && !blockLevel)
        throw QStringLiteral("Usage of full related options is mandatory with [block-level] "
                             "true.\n");
    plan.setUseDifferentialUpload(blockLevel);
    if (create || given(m_compressionOption))
        setCompression(plan);
    if (create || given(m_encryptionOption) || given(m_encryptionAlgorithmOption) ||
        given(m_encryptionPasswordOption) || given(m_encryptionHintOption))
        setEncryption(plan);
    setBackupEmptyFolders(plan);
    if (!setRetentionPolicy(plan, isNbf))
        failPlan();
    if (given(m_runMissedOption))
        plan.setRunMissedPlan(isTrue(m_runMissedOption));
    if (!setSchedule(plan.schedule(), isNbf, m_schedule, plan.schedule().occursAt()))
        failPlan();
    if (full) {
        const bool mainOn = create ? isTrue(m_schedule.schedule) : plan.schedule().isEnable();
        if (!mainOn)
            throw create ? QStringLiteral("Can not set full schedule. Option [schedule] true is "
                                          "mandatory.\n")
                         : QStringLiteral("Could not edit plan. Option [schedule] true is "
                                          "mandatory.\n");
        if (!setSchedule(plan.forceFullSchedule(), isNbf, m_fullSchedule,
                         plan.schedule().occursAt()))
            failPlan();
    }
    if (given(m_notificationOption))
        plan.notification().setType(*Notification::words().value(valueOf(m_notificationOption)));
    if (given(m_detailedReportOption))
        plan.notification().setGenerateDetailedReport(isTrue(m_detailedReportOption));
    if (given(m_subjectOption))
        plan.notification().setSubject(valueOf(m_subjectOption));
    if (given(m_consistencyCheckOption))
        plan.setUseConsistencyCheck(isTrue(m_consistencyCheckOption));
}

// ---------------------------------------------------------------------------
// Accounts

bool CommandPlanBase::sendConnectionRequest(const QUuid& id, void (CommandPlanBase::*slot)())
{
    try {
        auto request = QSharedPointer<GetConnection::Request>::create();
        request->setId(id);
        CommandChannel::sendTyped(GetConnection::CommandId, request, this, slot,
                                  QStringLiteral("Communication command don't registrate"));
        return true;
    } catch (const QString& message) {
        emit error(message);
        return false;
    }
}

void CommandPlanBase::loadConnectionInfo()
{
    sendConnectionRequest(QUuid(), &CommandPlanBase::onLoadConnectionInfo);
}

void CommandPlanBase::cloudType(const QUuid& storageId)
{
    m_cloudTypeId = storageId;
    sendConnectionRequest(storageId, &CommandPlanBase::onCloudTypeResult);
}

QJsonObject CommandPlanBase::connectionReply(bool all, bool* waiting)
{
    QScopedPointer<CommandChannel::TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::TypedCommand*>(sender()));
    const auto resend = [this, all] {
        if (all)
            loadConnectionInfo();
        else
            cloudType(m_cloudTypeId);
    };
    QSharedPointer<GetConnection::Response> response;
    try {
        response =
            CommandChannel::typedResponse<GetConnection::Response>(command.data(), this, resend);
    } catch (const QString& message) {
        throw message == CommandChannel::kInvalidResponse
            ? QStringLiteral("Internal error: invalid command response format")
            : message;
    }
    *waiting = !response;
    if (!response)
        return {};
    const QString wanted = all ? valueOf(m_accountOption) : m_cloudTypeId.toString();
    const QJsonArray connections = response->connections();
    for (const QJsonValue& value : connections)
        if (Sync::matches(value.toObject(), all ? wanted : QString(), wanted))
            return value.toObject();
    throw QStringLiteral("Invalid account Id or account Name.\n");
}

void CommandPlanBase::onLoadConnectionInfo()
{
    try {
        bool waiting = false;
        const QJsonObject record = connectionReply(true, &waiting);
        if (waiting)
            return;
        m_storageId = QUuid(record.value(QLatin1String(Reply::ID)).toString());
        m_storageType = Kel::Cloud::typeFromValue(record.value(QLatin1String(Reply::Type)).toInt());
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit connectionInfoLoaded();
}

void CommandPlanBase::onCloudTypeResult()
{
    try {
        bool waiting = false;
        const QJsonObject record = connectionReply(false, &waiting);
        if (waiting)
            return;
        m_storageType = Kel::Cloud::typeFromValue(record.value(QLatin1String(Reply::Type)).toInt());
    } catch (const QString& message) {
        emit error(message);
        return;
    }
    emit cloudTypeLoaded();
}

int CommandPlanBase::lookUpPlanToEdit(
    std::function<void(const QSharedPointer<Orv::Info::Plan::Base>&)> found)
{
    const QString id = valueOf(m_idOption);
    if (given(m_idOption) && QUuid(id).isNull()) {
        emit error(QStringLiteral("Invalid format data for ID: ") + id);
        return Started;
    }
    auto* loader = given(m_idOption) ? new LoadPlanObject(QUuid(id), this)
                                     : new LoadPlanObject(valueOf(m_nameOption), this);
    connect(loader, &LoadPlanObject::finished, this, [this, loader, found] {
        loader->deleteLater();
        const QSharedPointer<Orv::Info::PlanObject> plan = loader->planObject();
        if (!given(m_confirmOption)) {
            emit error(QStringLiteral("Please confirm edit plan:\n") + plan->displayName() +
                       QStringLiteral(" ") + plan->id().toString());
            return;
        }
        found(Orv::Info::Plan::Factory::create(plan->planXml()));
    });
    connect(loader, &LoadPlanObject::error, this, [this, loader](const QString& message) {
        loader->deleteLater();
        emit error(message);
    });
    loader->exec();
    return Started;
}

void CommandPlanBase::sendEditedPlan(const Orv::Info::Plan::Base& plan)
{
    namespace CommonEdit = Orv::Common::Communication::Commands::Format::Plan::CommonEdit;
    QString xmlError;
    // A password this process cannot open goes back sealed as it came.
    const QString xml = plan.toXml(Orv::Info::Plan::Base::SecretForm::Plain, &xmlError);
    if (xml.isEmpty())
        throw xmlError;
    CommandChannel::sendNamed(
        QLatin1String(CommonEdit::Name),
        {{QLatin1String(CommonEdit::Request::Profile), QString::fromLocal8Bit(qgetenv("USER"))},
         {QLatin1String(CommonEdit::Request::PlanXml), xml},
         {QLatin1String(CommonEdit::Request::ID), plan.id().toString()}},
        this, &CommandPlanBase::onEditedPlanSaved);
}

void CommandPlanBase::onEditedPlanSaved()
{
    QScopedPointer<CommandChannel::ICommand, QScopedPointerDeleteLater> command(
        qobject_cast<CommandChannel::ICommand*>(sender()));
    try {
        CommandChannel::namedReplyData(command.data());
    } catch (const QString& message) {
        emit error(message == CommandChannel::kReplyFormatError
                       ? QStringLiteral("Internal error: invalid command response format.\n")
                       : message);
        return;
    }
    emit finished(Show);
}

} // namespace Orv::CLI
