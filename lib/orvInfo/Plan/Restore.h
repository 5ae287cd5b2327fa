#pragma once

#include "orvInfo/Plan/Base.h"
#include "orvInfo/Plan/RestoreStorageInfo.h"
#include "orvInfo/Plan/Secret.h"

#include <QDateTime>
#include <QString>

namespace Orv::Info::Plan {

// What every restore plan has. A fresh plan restores the latest version, is
// kept after it ran and has no decryption password.
//
// The decryption password is sealed with the instance's local key whenever the
// plan is written for storage and masked whenever it is written for display
// (see Base::SecretForm).
class Restore : public Base
{
public:
    using StorageInfo = RestoreStorageInfo;

    enum class RestoreType
    {
        LatestVersion = 0,
        PointInTime = 1,
    };
    enum class DeleteType
    {
        Never = 0,
        // The plan is deleted after a successful run ("restore-once").
        OnSucceeds = 1,
    };

    RestoreType restoreType() const { return m_restoreType; }
    void setRestoreType(RestoreType type) { m_restoreType = type; }
    QDateTime pointInTime() const { return m_pointInTime; }
    void setPointInTime(const QDateTime& time) { m_pointInTime = time; }
    // The chosen restore point of a plan in the new backup format, as
    // "<bunch id>/<generation id>/<restore point id>": the bunch alone
    // restores its newest point, bunch and generation that generation's
    // newest point (or with a point in time, the newest not later than it).
    QString restorePoint() const { return m_restorePoint; }
    void setRestorePoint(const QString& point) { m_restorePoint = point; }
    DeleteType deletePlan() const { return m_deletePlan; }
    void setDeletePlan(DeleteType type) { m_deletePlan = type; }
    bool useEncryption() const { return m_useEncryption; }
    void setUseEncryption(bool use) { m_useEncryption = use; }
    QString encryptionPassword() const { return m_password.text(); }
    void setEncryptionPassword(const QString& password) { m_password = Secret(password); }
    // The password with its sealed state, for the XML form.
    const Secret& encryptionPasswordSecret() const { return m_password; }
    void setEncryptionPasswordSecret(const Secret& secret) { m_password = secret; }
    StorageInfo& storageInfo() { return m_storageInfo; }
    const StorageInfo& storageInfo() const { return m_storageInfo; }

    // "Latest version", "Point in time".
    static QString RestoretTypeString(RestoreType type);
    // "LatestVersion", "PointInTime".
    static const WordTable<RestoreType>& restoreTypeWords();
    // "Never", "OnSucceeds".
    static const WordTable<DeleteType>& deleteTypeWords();

protected:
    explicit Restore(PlanSubtype subtype) : Base(PlanType::Restore, subtype) {}
    Restore(const Restore&) = default;
    Restore& operator=(const Restore&) = default;

private:
    RestoreType m_restoreType = RestoreType::LatestVersion;
    QDateTime m_pointInTime;
    QString m_restorePoint;
    DeleteType m_deletePlan = DeleteType::Never;
    bool m_useEncryption = false;
    Secret m_password;
    StorageInfo m_storageInfo;
};

} // namespace Orv::Info::Plan
