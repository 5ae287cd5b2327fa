#pragma once

#include "orvInfo/Plan/Notification.h"
#include "orvInfo/Plan/PlanType.h"
#include "orvInfo/Plan/Schedule.h"
#include "orvInfo/Plan/WordTable.h"

#include <QDomDocument>
#include <QString>
#include <QUuid>

namespace Orv::Info::Plan {

// The fields every plan has. Plans are values: copy them freely, but through
// their most derived class (the copy operations are protected so that a
// BackupFile is never sliced into a Base).
//
// A fresh plan has a new id, no name and no storage, the current backup format
// (isArchive() false), does not run missed plans nor sync before a run, runs
// the consistency check, has no schedule and reports failed runs by e-mail.
class Base
{
public:
    // How the plan's passwords appear in its XML form.
    enum class SecretForm
    {
        // Sealed with the instance's local key (Orv::Common::LocalSecret):
        // the form of the files in config/plans/ and the only one the service
        // writes to disk.
        Sealed,
        // "****" in place of each password that is set: for logs and for
        // showing a plan. Such a document cannot be read back as a plan.
        Masked,
        // In clear: only for handing a plan to the service over its local
        // socket, by a process that cannot read the local key.
        Plain,
    };

    virtual ~Base() = default;

    QUuid id() const { return m_id; }
    void setId(const QUuid& id) { m_id = id; }
    QString name() const { return m_name; }
    void setName(const QString& name) { m_name = name; }
    PlanType type() const { return m_type; }
    PlanSubtype subtype() const { return m_subtype; }
    // The storage account the plan writes to or reads from.
    QUuid storage() const { return m_storage; }
    void setStorage(const QUuid& storage) { m_storage = storage; }
    QUuid accountId() const { return m_accountId; }
    void setAccountId(const QUuid& account) { m_accountId = account; }
    // True for the new backup format ("nbf"), false for the current one ("cbf").
    bool isArchive() const { return m_isArchive; }
    void setIsArchive(bool archive) { m_isArchive = archive; }
    bool runMuissedPlan() const { return m_runMissedPlan; }
    void setRunMissedPlan(bool run) { m_runMissedPlan = run; }
    bool syncBeforeRun() const { return m_syncBeforeRun; }
    void setSyncBeforeRun(bool sync) { m_syncBeforeRun = sync; }
    bool useConsistencyCheck() const { return m_useConsistencyCheck; }
    void setUseConsistencyCheck(bool use) { m_useConsistencyCheck = use; }
    Schedule& schedule() { return m_schedule; }
    const Schedule& schedule() const { return m_schedule; }
    Notification& notification() { return m_notification; }
    const Notification& notification() const { return m_notification; }

    // The plan's XML form (see PlanXml). Empty, with the reason in *error,
    // only when a password has to be sealed and the local key cannot be made
    // or read.
    QString toXml(SecretForm form = SecretForm::Sealed, QString* error = nullptr) const;
    QDomDocument toDocument(SecretForm form = SecretForm::Sealed, QString* error = nullptr) const;

    // The backup formats: "cbf" (false, the default) and "nbf" (true).
    static const WordTable<bool>& formatWords();

protected:
    Base(PlanType type, PlanSubtype subtype);
    Base(const Base&) = default;
    Base& operator=(const Base&) = default;

private:
    QUuid m_id;
    QString m_name;
    PlanType m_type;
    PlanSubtype m_subtype;
    QUuid m_storage;
    QUuid m_accountId;
    bool m_isArchive = false;
    bool m_runMissedPlan = false;
    bool m_syncBeforeRun = false;
    bool m_useConsistencyCheck = true;
    Schedule m_schedule;
    Notification m_notification;
};

} // namespace Orv::Info::Plan
