#include "PlanInfoBackupFile.h"

namespace Orv::CLI {

using Orv::Info::Plan::BackupFile;
using StorageInfo = Orv::Info::Plan::Backup::StorageInfo;

namespace {

bool isAmazonS3(Kel::Cloud::Type type)
{
    return type == Kel::Cloud::Type::AmazonS3 || type == Kel::Cloud::Type::AmazonS3Chinese ||
           type == Kel::Cloud::Type::AmazonS3UB;
}

} // namespace

PlanInfoBackupFile::PlanInfoBackupFile(QSharedPointer<const Orv::Info::Plan::BackupFile> plan)
    : PlanInfo(plan), m_backup(std::move(plan))
{
}

QString PlanInfoBackupFile::summary() const
{
    const BackupFile& plan = *m_backup;
    QString text = PlanInfo::summary();
    text += line(QStringLiteral("Block level backup     : "), yesNo(plan.useDifferentialUpload()));
    text += list(QStringLiteral("Backup items:"), plan.items());
    text += list(QStringLiteral("Backup exclude items:"), plan.excludeItems());
    text += list(QStringLiteral("Skip folders:"), plan.excludeFolderList());
    if (plan.filterType() == BackupFile::FilterType::BackupMatching)
        text += list(QStringLiteral("Backup files of these types:"), plan.filter());
    else if (plan.filterType() == BackupFile::FilterType::SkipMatching)
        text += list(QStringLiteral("Do not Backup files of these types:"), plan.filter());
    text += line(QStringLiteral("Compression            : "), yesNo(plan.useCompression()));
    text +=
        line(QStringLiteral("Do not backup hidden files : "), yesNo(plan.excludeSystemAndHidden()));
    text += line(QStringLiteral("Backup empty folders   : "), yesNo(plan.backupEmptyFolders()));
    text += line(QStringLiteral("Encryption             : "), yesNo(plan.encryption().isEnabled()));
    if (plan.encryption().isEnabled())
        text += line(QStringLiteral("Encryption algorithm   : "),
                     BackupFile::Encyption::encryprtionAlgorithmToString(
                         plan.encryption().encryptionType()));
    text += storageLines();
    text += line(QStringLiteral("Schedule               : "), scheduleText(plan.schedule()));
    text += line(QStringLiteral("Run missed plan        : "), yesNo(plan.runMuissedPlan()));
    text += line(QStringLiteral("Stop plan after        : "), stopAfterText(plan.schedule()));
    text +=
        line(QStringLiteral("Schedule full backup   : "), scheduleText(plan.forceFullSchedule()));
    text +=
        line(QStringLiteral("Stop plan after (full) : "), stopAfterText(plan.forceFullSchedule()));
    text += actionLines();
    text += line(QStringLiteral("Consistency check      : "), yesNo(plan.useConsistencyCheck()));
    return text;
}

// Each account type reads only its own storage options; the others' are
// kept in the plan but mean nothing there, so they are not shown.
QString PlanInfoBackupFile::storageLines() const
{
    const StorageInfo& storage = m_backup->storageInfo();
    if (destinationType() == Kel::Cloud::Type::AzureBlob)
        return line(QStringLiteral("Access tier            : "),
                    StorageInfo::AzureBlobStorageClass2String(storage.storageClassAzureBlob()));
    if (!isAmazonS3(destinationType()))
        return QString();
    return line(QStringLiteral("Storage class          : "),
                StorageInfo::AmazonS3StorageClass2String(storage.storageClassAmazonS3())) +
           line(QStringLiteral("Use SSE                : "), yesNo(storage.useSSE())) +
           line(QStringLiteral("Use Amazon S3 Transfer Acceleration: "),
                yesNo(storage.useS3Accelerated()));
}

QString PlanInfoBackupFile::actionLines() const
{
    const auto& pre = m_backup->actions().pre();
    const auto& post = m_backup->actions().post();
    QString text = line(QStringLiteral("Pre-Action : "),
                        pre.isEnabled() ? pre.program() : QStringLiteral("Off"));
    if (pre.isEnabled())
        text +=
            line(QStringLiteral("Terminate plan on failure: "), yesNo(pre.terminateOnFailure()));
    text += line(QStringLiteral("Post-Action : "),
                 post.isEnabled() ? post.program() : QStringLiteral("Off"));
    if (post.isEnabled())
        text += line(QStringLiteral("Run on backup failure: "), yesNo(post.runOnBackupFailure()));
    return text;
}

} // namespace Orv::CLI
