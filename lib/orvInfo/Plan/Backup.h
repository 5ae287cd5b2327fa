#pragma once

#include "orvInfo/Plan/Actions.h"
#include "orvInfo/Plan/BackupEncyption.h"
#include "orvInfo/Plan/BackupRetentionPolicy.h"
#include "orvInfo/Plan/BackupStorageInfo.h"
#include "orvInfo/Plan/Base.h"
#include "orvInfo/Plan/Schedule.h"

namespace Orv::Info::Plan {

// What every backup plan has. By default data is compressed, uploaded whole
// (no block-level backup) and the plan is saved in the storage with it; the
// full-backup schedule is off.
class Backup : public Base
{
public:
    using Encyption = BackupEncyption;
    using RetentionPolicy = BackupRetentionPolicy;
    using StorageInfo = BackupStorageInfo;

    bool useCompression() const { return m_useCompression; }
    void setUseCompression(bool use) { m_useCompression = use; }
    // Block-level backup.
    bool useDifferentialUpload() const { return m_useDifferentialUpload; }
    void setUseDifferentialUpload(bool use) { m_useDifferentialUpload = use; }
    bool savePlanInCloud() const { return m_savePlanInCloud; }
    void setSavePlanInCloud(bool save) { m_savePlanInCloud = save; }
    // When the next backup is forced to be a full one.
    Schedule& forceFullSchedule() { return m_forceFullSchedule; }
    const Schedule& forceFullSchedule() const { return m_forceFullSchedule; }
    Encyption& encryption() { return m_encryption; }
    const Encyption& encryption() const { return m_encryption; }
    RetentionPolicy& retentionPolicy() { return m_retentionPolicy; }
    const RetentionPolicy& retentionPolicy() const { return m_retentionPolicy; }
    StorageInfo& storageInfo() { return m_storageInfo; }
    const StorageInfo& storageInfo() const { return m_storageInfo; }
    Actions& actions() { return m_actions; }
    const Actions& actions() const { return m_actions; }

protected:
    explicit Backup(PlanSubtype subtype) : Base(PlanType::Backup, subtype) {}
    Backup(const Backup&) = default;
    Backup& operator=(const Backup&) = default;

private:
    bool m_useCompression = true;
    bool m_useDifferentialUpload = false;
    bool m_savePlanInCloud = true;
    Schedule m_forceFullSchedule;
    Encyption m_encryption;
    RetentionPolicy m_retentionPolicy;
    StorageInfo m_storageInfo;
    Actions m_actions;
};

} // namespace Orv::Info::Plan
