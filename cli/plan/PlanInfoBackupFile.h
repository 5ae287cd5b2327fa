#pragma once

#include "PlanInfo.h"
#include "orvInfo/Plan/BackupFile.h"

namespace Orv::CLI {

// The summary of a file backup plan: sources and filters, compression and
// encryption, the storage-specific options of Amazon S3 and Azure accounts,
// both schedules and the pre- and post-actions.
class PlanInfoBackupFile : public PlanInfo
{
public:
    explicit PlanInfoBackupFile(QSharedPointer<const Orv::Info::Plan::BackupFile> plan);

    QString summary() const override;

private:
    QString storageLines() const;
    QString actionLines() const;

    QSharedPointer<const Orv::Info::Plan::BackupFile> m_backup;
};

} // namespace Orv::CLI
