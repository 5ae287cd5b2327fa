#include "service/jobs/RunRequest.h"

#include "kelCloud/Types.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/SettingsKeys.h"
#include "orvInfo/Plan/BackupFile.h"
#include "orvInfo/Plan/RestoreFile.h"

#include <QDir>
#include <QProcess>

namespace Orv::Service {

namespace {

using namespace Orv::Info::Plan;
using Orv::Engine::RunDescription;
using Orv::Engine::WalkOptions;

// Plans wait this long for an action: one that hangs must not hold the plan
// for ever.
constexpr qint64 kDefaultActionTimeoutMs = 60LL * 60 * 1000;

qint64 number(const QString& text, qint64 fallback)
{
    bool ok = false;
    const qint64 value = text.trimmed().toLongLong(&ok);
    return ok ? value : fallback;
}

// Settings keep bandwidth in KB/s with -1 (or anything below 1) for none.
qint64 bandwidth(const QString& text)
{
    const qint64 value = number(text, -1);
    return value < 1 ? 0 : value * 1024;
}

// "N.hh:mm:ss" as the settings store keeps spans; the largest span means
// that nothing is deleted by age.
int daysOfSpan(const QString& span)
{
    if (span == QLatin1String(Orv::SerializationSupportRT_Disabled))
        return 0;
    return int(qBound<qint64>(0, number(span.section(QLatin1Char('.'), 0, 0), 0), 365 * 1000));
}

QList<QByteArray> encodedPaths(const QStringList& paths)
{
    QList<QByteArray> encoded;
    for (const QString& path : paths)
        encoded.append(QFile::encodeName(QDir::cleanPath(path)));
    return encoded;
}

WalkOptions::FileMaskType maskType(BackupFile::FilterType type)
{
    switch (type) {
    case BackupFile::FilterType::BackupMatching:
        return WalkOptions::FileMaskType::BackupOnly;
    case BackupFile::FilterType::SkipMatching:
        return WalkOptions::FileMaskType::Skip;
    case BackupFile::FilterType::NoFilter:
        break;
    }
    return WalkOptions::FileMaskType::All;
}

QString algorithmWord(Backup::Encyption::Type type)
{
    switch (type) {
    case Backup::Encyption::AES128:
        return QStringLiteral("aes-128");
    case Backup::Encyption::AES192:
        return QStringLiteral("aes-192");
    default:
        return QStringLiteral("aes-256");
    }
}

RunDescription::Retention retention(const Backup::RetentionPolicy& policy,
                                    const RunSettings& settings)
{
    RunDescription::Retention kept;
    if (policy.type() == Backup::RetentionPolicy::Type::Default) {
        kept.count = settings.retentionDays;
        return kept;
    }
    if (!policy.useDeleteOlder())
        return kept;
    kept.count = qMax(0, policy.deleteFileAge().count());
    kept.unit = RunDescription::Retention::Unit(int(policy.deleteFileAge().unit()));
    return kept;
}

bool makeAction(const Action& action, bool onFailure, PlanAction* made, QString* error)
{
    made->enabled = action.isEnabled();
    made->onFailure = onFailure;
    if (!made->enabled)
        return true;
    if (parseActionCommand(action.program(), &made->program, &made->arguments))
        return true;
    *error =
        QStringLiteral("The action %1 does not start with a quoted program").arg(action.program());
    return false;
}

bool describeBackup(const BackupFile& plan, const RunSettings& settings, bool local, bool forceFull,
                    RunRequest* request, QString* error)
{
    request->currentFormat = !plan.isArchive();
    if (plan.items().isEmpty()) {
        *error = QStringLiteral("The plan has nothing to back up");
        return false;
    }
    RunDescription& d = request->backup;
    d.planId = plan.id().toString(QUuid::WithoutBraces);
    d.planName = plan.name();
    d.walk.sources = encodedPaths(plan.items());
    d.walk.excluded = encodedPaths(plan.excludeItems());
    d.walk.skipFolderMasks = plan.excludeFolderList();
    d.walk.fileMasks = plan.filter();
    d.walk.fileMaskType = maskType(plan.filterType());
    d.walk.skipHidden = plan.excludeSystemAndHidden();
    d.walk.skipInUse = plan.skipInUseFiles();
    d.walk.symlinkMode = Orv::Common::SymlinkBackupMode::Mode(settings.symlinkMode);
    d.keepEmptyFolders = plan.backupEmptyFolders();
    d.compression = plan.useCompression();
    if (plan.encryption().isEnabled()) {
        if (plan.encryption().passwordSecret().isUnopened() ||
            plan.encryption().password().isEmpty()) {
            *error = QStringLiteral("The plan's encryption password cannot be read");
            return false;
        }
        d.algorithm = algorithmWord(plan.encryption().encryptionType());
        d.password = plan.encryption().password().toUtf8();
        // Plans keep the hint as Base64 text; the generation record keeps its bytes.
        d.hint = QByteArray::fromBase64(plan.encryption().hint());
    }
    d.forceFull = forceFull;
    d.blockLevel = request->currentFormat && plan.useDifferentialUpload();
    d.threads = settings.threads;
    d.memoryLimit = settings.memoryLimit;
    d.bandwidth = local ? settings.localBandwidth : settings.cloudBandwidth;
    d.packSize = qBound<qint64>(4 * 1024 * 1024, settings.chunkSize, 64 * 1024 * 1024);
    d.temporaryPath = settings.temporaryPath;
    d.retryAttempts = settings.retryAttempts;
    d.retryInterval = settings.retryInterval;
    d.retention = retention(plan.retentionPolicy(), settings);
    if (request->currentFormat) {
        // Versions are kept per file in this format, not by generation.
        d.versions = versionRetention(plan.retentionPolicy(), settings);
        d.retention = {};
        if (plan.savePlanInCloud())
            d.savedPlan = plan.toXml(Base::SecretForm::Masked).toUtf8();
    }
    return makeAction(plan.actions().pre(), plan.actions().pre().terminateOnFailure(),
                      &request->pre, error) &&
           makeAction(plan.actions().post(), plan.actions().post().runOnBackupFailure(),
                      &request->post, error);
}

bool describeRestore(const RestoreFile& plan, const RunSettings& settings, RunRequest* request,
                     QString* error)
{
    request->currentFormat = !plan.isArchive();
    Orv::Engine::RestoreDescription& d = request->restoreDescription;
    // The bunch of a new-format restore is the backup plan's id; the restore
    // plan names it in its restore point as "bunch/generation/point".
    const QStringList parts = plan.restorePoint().split(QLatin1Char('/'));
    d.bunch = parts.value(0);
    d.generation = parts.value(1);
    d.point = parts.value(2);
    // A point in time is given to the minute, as listings show the runs: a
    // run that started within that minute is part of the state asked for.
    if (plan.restoreType() == Restore::RestoreType::PointInTime) {
        d.pointInTime = plan.pointInTime();
        const QTime time = d.pointInTime.time();
        if (request->currentFormat && time.second() == 0 && time.msec() == 0)
            d.pointInTime = d.pointInTime.addMSecs(59999);
    }
    d.paths = encodedPaths(plan.restoreItems());
    d.includeDeleted = plan.restoreDeletedFiles();
    if (!plan.restoreToOriginalLocation())
        d.target.destination = QFile::encodeName(QDir::cleanPath(plan.destination()));
    using Existing = Orv::Engine::RestoreTarget::Existing;
    d.target.existing = plan.skipExistingFiles() ? Existing::SkipExisting
                        : plan.onlyNewFiles()    ? Existing::OnlyNewer
                                                 : Existing::Overwrite;
    if (plan.encryptionPasswordSecret().isUnopened()) {
        *error = QStringLiteral("The plan's decryption password cannot be read");
        return false;
    }
    d.password = plan.encryptionPassword().toUtf8();
    d.threads = settings.threads;
    if (d.bunch.isEmpty() && !request->currentFormat) {
        *error = QStringLiteral("The plan names no backup to restore from");
        return false;
    }
    return true;
}

} // namespace

RunSettings RunSettings::current()
{
    const Orv::DefaultSettings* store = Orv::DefaultSettings::instance();
    RunSettings s;
    s.threads = int(qBound<qint64>(1, number(store->getThreadCount(), 2), 100));
    s.memoryLimit =
        qMax<qint64>(64 * 1024 * 1024, number(store->getMemoryMaxUsage(), s.memoryLimit));
    s.cloudBandwidth = bandwidth(store->getCloudBandwidth());
    s.localBandwidth = bandwidth(store->getLocalBandwidth());
    s.chunkSize = number(store->getChunkSize(), s.chunkSize);
    s.temporaryPath = store->getTmpChunkPath();
    s.retryAttempts = int(qBound<qint64>(0, number(store->getConnectionRetryAttempts(), 3), 100));
    s.retryInterval =
        int(qBound<qint64>(0, number(store->getConnectionRetryInterval(), 1000), 3600 * 1000));
    const int mode = Orv::Common::SymlinkBackupMode::indexOf(store->getSymlinksBackupMode());
    s.symlinkMode = mode < 0 ? int(Orv::Common::SymlinkBackupMode::SymlinkOnly) : mode;
    s.retentionDays = daysOfSpan(store->getSerializationSupportRetentionTime());
    // The largest count means no limit.
    const qint64 versions = number(store->getRetentionNumberOfVersions(), 0);
    s.retentionVersions =
        versions > 0 && versions < number(QLatin1String(Orv::KeepNumberOfVersions_Disasbled), 0)
            ? int(versions)
            : 0;
    s.retentionKeepLast = store->getRetentionDeleteLastVersion() != QLatin1String("false");
    s.retentionBackupDate = store->getRetentionUseBackupDate() == QLatin1String("true");
    return s;
}

RunDescription::VersionRetention versionRetention(const BackupRetentionPolicy& policy,
                                                  const RunSettings& settings)
{
    RunDescription::VersionRetention kept;
    // The settings have no value for files deleted at the source: that
    // choice is always the plan's own.
    if (policy.useDeleteLocaly())
        kept.deletedAfterDays = qMax(0, policy.deleteLocalyAfter());
    kept.age = retention(policy, settings);
    if (policy.type() == Backup::RetentionPolicy::Type::Default) {
        kept.keep = settings.retentionVersions;
        kept.keepLast = settings.retentionKeepLast;
        kept.fromBackupDate = settings.retentionBackupDate;
        return kept;
    }
    kept.keep = policy.useKeepVersion() ? qMax(1, policy.keepVersion()) : 0;
    kept.keepLast = policy.useKeepLastVersion();
    kept.fromBackupDate = policy.useBackupDate();
    return kept;
}

bool parseActionCommand(const QString& command, QString* program, QStringList* arguments)
{
    const QString trimmed = command.trimmed();
    const int close = trimmed.indexOf(QLatin1Char('"'), 1);
    if (!trimmed.startsWith(QLatin1Char('"')) || close < 2)
        return false;
    *program = trimmed.mid(1, close - 1);
    *arguments = QProcess::splitCommand(trimmed.mid(close + 1));
    return true;
}

bool makeRunRequest(const Base& plan, const Orv::Info::Storage::Connection& account,
                    const QVariantMap& backendConfig, const RunSettings& settings,
                    const QString& cacheRoot, bool forceFull, RunRequest* request, QString* error)
{
    request->planId = plan.id();
    request->planName = plan.name();
    request->syncBeforeRun = plan.syncBeforeRun();
    request->consistencyCheck = plan.useConsistencyCheck();
    request->stopAfterMs = qint64(plan.schedule().stopAfter());
    // The plan's stop-after limit ends its actions too; this one is for
    // plans without a limit.
    request->actionTimeoutMs = kDefaultActionTimeoutMs;
    request->location.prefix = account.prefix();
    request->location.cacheFolder =
        QDir(cacheRoot).filePath(account.id().toString(QUuid::WithoutBraces));
    request->location.backend = [backendConfig](Kel::Cloud::Status* status) {
        return Kel::Cloud::Backend::create(backendConfig, status);
    };
    const bool local = account.type() == int(Kel::Cloud::Type::FileSystem);
    if (const auto* backup = dynamic_cast<const BackupFile*>(&plan))
        return describeBackup(*backup, settings, local, forceFull, request, error);
    if (const auto* restore = dynamic_cast<const RestoreFile*>(&plan)) {
        request->restore = true;
        return describeRestore(*restore, settings, request, error);
    }
    *error = QStringLiteral("This kind of plan cannot run");
    return false;
}

} // namespace Orv::Service
