#pragma once

#include "CommandBase.h"
#include "kelCloud/Types.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/RestoreFile.h"

#include <QJsonObject>
#include <QMap>
#include <QSet>
#include <QTime>
#include <QUuid>
#include <functional>

namespace Orv::CLI {

// Base of the commands that create or edit a backup or restore plan: the
// whole option catalogue, its validation in a fixed order, and the setters
// that write the options into a plan of the plan library.
class CommandPlanBase : public CommandBase
{
    Q_OBJECT
public:
    enum ActionType
    {
        Create = 0,
        Edit = 1
    };
    enum PlanType
    {
        Backup = 0,
        Restore = 1
    };
    // What process() found.
    enum Result
    {
        Valid = 0,
        MandatoryMissing = 1,
        WrongValue = 2,
        Conflict = 3
    };
    enum PlanFormat
    {
        Cbf = 0,
        Nbf = 1
    };
    enum FileMaskType
    {
        BackupMatching = 0,
        SkipMatching = 1,
        AllFiles = 2
    };
    enum AgeType
    {
        Day = 0,
        Week = 1,
        Month = 2,
        Year = 3
    };

    // The nineteen options that describe one schedule; the full-backup
    // schedule has the same ones with the prefix "full-".
    struct ScheduleOptions
    {
        explicit ScheduleOptions(const QString& prefix);
        QList<const QCommandLineOption*> all() const;

        QCommandLineOption schedule;
        QCommandLineOption specificDateOption;
        QCommandLineOption specificDateValue;
        QCommandLineOption stopAutoOption;
        QCommandLineOption stopAutoHours;
        QCommandLineOption stopAutoMinutes;
        QCommandLineOption useRecurringOption;
        QCommandLineOption frequencyValue;
        QCommandLineOption occursAtOption;
        QCommandLineOption occursAtValue;
        QCommandLineOption occursEveryOption;
        QCommandLineOption occursEveryValue;
        QCommandLineOption occursEveryFrom;
        QCommandLineOption occursEveryTo;
        QCommandLineOption weekDayNumbers;
        QCommandLineOption monthlyTypeValue;
        QCommandLineOption monthlyDay;
        QCommandLineOption monthlyEvery;
        QCommandLineOption monthlyRepeatFrom;
        bool isFull;
    };

    CommandPlanBase(const QString& name, const QString& description, ActionType action,
                    PlanType planType, QObject* parent = nullptr);

    // The generic option handling, then the plan checks. A result of the
    // generic stage other than Started is returned as it is; otherwise one of
    // Result, with the reason printed.
    int process(const QStringList& words) override;

    ActionType actionType() const { return m_actionType; }
    PlanType planType() const { return m_planType; }
    // The account resolved from "account" (loadConnectionInfo()).
    QUuid getStorageId() const { return m_storageId; }
    Kel::Cloud::Type storageType() const { return m_storageType; }
    // Whether a setter changed a field of the plan being edited.
    bool planChanged() const { return m_planChanged; }

    // Setters over a plan. Those returning void throw the message as a
    // QString; those returning bool print it and return false.
    void setCompression(Orv::Info::Plan::BackupFile& plan);
    void setEncryption(Orv::Info::Plan::BackupFile& plan);
    void setBackupEmptyFolders(Orv::Info::Plan::BackupFile& plan);
    void initIncludeExcludeItems(Orv::Info::Plan::BackupFile& plan);
    bool initPreAction(Orv::Info::Plan::BackupFile& plan);
    bool initPostAction(Orv::Info::Plan::BackupFile& plan);
    bool setRetentionPolicy(Orv::Info::Plan::BackupFile& plan, bool isNbf);
    bool setSchedule(Orv::Info::Plan::Schedule& schedule, bool isNbf,
                     const ScheduleOptions& options, const QTime& defaultTime);
    // The provider rules of "storage-class", "sse" and "transfer-acceleration"
    // for the account's type; throws the message.
    void setStorageOptions(Orv::Info::Plan::BackupFile& plan, Kel::Cloud::Type type);

    // A pre- or post-action command: "\"/path/to/program\" arguments" naming
    // an existing executable file.
    static bool checkFilePermissions(const QString& commandLine);
    // The text inside the first pair of double quotes.
    static QString getProgramPath(const QString& commandLine);

    static const QMap<QString, PlanFormat>& planFormatWords();
    static const QMap<QString, FileMaskType>& fileMaskTypeWords();
    static const QMap<QString, AgeType>& ageTypeWords();

signals:
    // loadConnectionInfo() and cloudType() have their answer.
    void connectionInfoLoaded();
    void cloudTypeLoaded();

protected:
    // Edit commands: finds the plan that "id" or "name" names, asks for the
    // confirmation and reads the plan, then hands it to found(); any failure
    // ends the command with its message. The result for process().
    int lookUpPlanToEdit(std::function<void(const QSharedPointer<Orv::Info::Plan::Base>&)> found);
    // Edit commands: sends the changed plan back to the service; the command
    // ends when the service answered.
    void sendEditedPlan(const Orv::Info::Plan::Base& plan);
    void onEditedPlanSaved();
    // Asks the service for the accounts and keeps the one "account" names:
    // connectionInfoLoaded() follows, or error(message).
    void loadConnectionInfo();
    // Asks the service for one account to learn its provider type:
    // cloudTypeLoaded() follows, or error(message).
    void cloudType(const QUuid& storageId);

    // Fills a backup plan from the options, on create from scratch, on edit
    // only where an option is given. Throws the message.
    void fillBackupPlan(Orv::Info::Plan::BackupFile& plan, bool isNbf);
    // A message printed by a setter that returned false, then the command's
    // own failure text.
    [[noreturn]] void failPlan() const;

    bool given(const QCommandLineOption& option) const;
    QString valueOf(const QCommandLineOption& option) const;
    QStringList valuesOf(const QCommandLineOption& option) const;
    bool isTrue(const QCommandLineOption& option) const;
    bool anyFullOptionGiven() const;
    static QString bracketed(const QCommandLineOption& option);

    // The catalogue, in the order of its help.
    QCommandLineOption m_idOption;
    QCommandLineOption m_nameOption;
    QCommandLineOption m_formatOption;
    QCommandLineOption m_accountOption;
    QCommandLineOption m_storageClassOption;
    QCommandLineOption m_sseOption;
    QCommandLineOption m_transferAccelerationOption;
    QCommandLineOption m_syncOption;
    QCommandLineOption m_sourceOption;
    QCommandLineOption m_excludeOption;
    QCommandLineOption m_hiddenOption;
    QCommandLineOption m_skipInUseOption;
    QCommandLineOption m_saveConfigOption;
    QCommandLineOption m_blockLevelOption;
    QCommandLineOption m_compressionOption;
    QCommandLineOption m_encryptionOption;
    QCommandLineOption m_encryptionAlgorithmOption;
    QCommandLineOption m_encryptionPasswordOption;
    QCommandLineOption m_encryptionHintOption;
    QCommandLineOption m_emptyOption;
    QCommandLineOption m_fileMaskTypeOption;
    QCommandLineOption m_fileMaskOption;
    QCommandLineOption m_skipFoldersOption;
    QCommandLineOption m_retentionPolicyOption;
    QCommandLineOption m_deleteVersionOlderOption;
    QCommandLineOption m_deleteVersionOlderAgeOption;
    QCommandLineOption m_deleteVersionOlderTypeOption;
    QCommandLineOption m_keepLastVersionOption;
    QCommandLineOption m_keepVersionOption;
    QCommandLineOption m_keepVersionNumberOption;
    QCommandLineOption m_deleteLocallyOption;
    QCommandLineOption m_deleteLocallyDelayOption;
    QCommandLineOption m_deleteDateTypeOption;
    QCommandLineOption m_nbfRetentionPolicyOption;
    QCommandLineOption m_keepBackupTypeOption;
    QCommandLineOption m_keepBackupNumberOption;
    QCommandLineOption m_runMissedOption;
    ScheduleOptions m_schedule;
    ScheduleOptions m_fullSchedule;
    QCommandLineOption m_detailedReportOption;
    QCommandLineOption m_notificationOption;
    QCommandLineOption m_subjectOption;
    QCommandLineOption m_consistencyCheckOption;
    QCommandLineOption m_preActionEnabledOption;
    QCommandLineOption m_preActionCommandOption;
    QCommandLineOption m_preActionExitOnFailOption;
    QCommandLineOption m_postActionEnabledOption;
    QCommandLineOption m_postActionCommandOption;
    QCommandLineOption m_postActionRunOnFailOption;
    QCommandLineOption m_confirmOption;
    QCommandLineOption m_latestVersionOption;
    QCommandLineOption m_bunchOption;
    QCommandLineOption m_restorePointOption;
    QCommandLineOption m_restoreLocationOption;
    QCommandLineOption m_overwriteFilesOption;
    QCommandLineOption m_restoreNewFilesOption;
    QCommandLineOption m_decryptionPasswordOption;
    QCommandLineOption m_glacierRetrievalRateOption;
    QCommandLineOption m_restoreOnceOption;
    QCommandLineOption m_restoreDeletedFilesOption;

    ActionType m_actionType;
    PlanType m_planType;
    QUuid m_storageId;
    Kel::Cloud::Type m_storageType = Kel::Cloud::Type::Unknown;
    bool m_planChanged = false;

private slots:
    void onLoadConnectionInfo();
    void onCloudTypeResult();

private:
    void registerOption(const QCommandLineOption& option, bool logValue = true);
    int checkPlanOptions();
    int checkEncryptionOptions();
    bool checkRetentionOptions();
    bool checkScheduleParameters(const ScheduleOptions& options);
    bool checkSwitches(const QList<const QCommandLineOption*>& switches);
    bool initAction(Orv::Info::Plan::Action& action, const QCommandLineOption& enabled,
                    const QCommandLineOption& command);
    bool setStopAfter(Orv::Info::Plan::Schedule& schedule, const ScheduleOptions& options);
    bool setScheduleKind(Orv::Info::Plan::Schedule& schedule, const ScheduleOptions& options,
                         bool isNbf);
    bool setDailyTimes(Orv::Info::Plan::Schedule& schedule, const ScheduleOptions& options,
                       const QTime& defaultTime, bool newlyRecurring);
    bool setRecurrence(Orv::Info::Plan::Schedule& schedule, const ScheduleOptions& options,
                       bool isNbf);
    bool setRetentionNbf(Orv::Info::Plan::BackupFile& plan);
    void setRetentionCbf(Orv::Info::Plan::BackupFile& plan);
    // Sends the typed account request; false with error() emitted when it
    // cannot be sent.
    bool sendConnectionRequest(const QUuid& id, void (CommandPlanBase::*slot)());
    // The record the reply holds for the account asked for (all: the one
    // "account" names); *waiting when the service asked to try later.
    QJsonObject connectionReply(bool all, bool* waiting);

    QSet<QString> m_registered;
    QUuid m_cloudTypeId;
};

} // namespace Orv::CLI
