#pragma once

#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/Plan/PlanStatus.h"
#include "orvInfo/Plan/PlanType.h"

#include <QDateTime>
#include <QJsonObject>
#include <QString>
#include <QUuid>

namespace Orv::Info {

// One row of the plan list: what the service reports of a plan without
// loading the whole plan. The plan's own XML travels with it for the commands
// that need the details.
class PlanObject
{
public:
    // The row members beyond those of Format::Plan::DataType::Info. A row
    // without them (an older service) reads as a plan that is idle and never
    // ran.
    struct RowKey
    {
        static constexpr char Status[] = "Status";
        static constexpr char Schedule[] = "Schedule";
        static constexpr char LastRunTime[] = "LastRunTime";
        static constexpr char LastRunStatus[] = "LastRunStatus";
        static constexpr char LastRunMessage[] = "LastRunMessage";
        static constexpr char LastDuration[] = "LastDuration";
        static constexpr char LastFileCount[] = "LastFileCount";
        static constexpr char LastFileSize[] = "LastFileSize";
        static constexpr char LastUploadedCount[] = "LastUploadedCount";
        static constexpr char LastFailedCount[] = "LastFailedCount";
        static constexpr char LastProgressSteps[] = "LastProgressSteps";
    };

    PlanObject() = default;

    // Reads the row members of a plan file. The root element is <Plan> with
    // the attributes ID, Name, Type ("Backup" or "Restore") and Storage.
    // Returns a null object (isValid() false) with *error set when the
    // document is not a plan.
    static PlanObject fromPlanXml(const QByteArray& xml, QString* error);
    static PlanObject fromRow(const QJsonObject& row);
    QJsonObject toRow() const;

    bool isValid() const { return !m_id.isNull(); }
    QUuid id() const { return m_id; }
    QString displayName() const { return m_name; }
    // The Type word as the plan gives it.
    QString typeName() const { return m_type; }
    // The same as a kind; a word this version does not know reads as Backup,
    // so that typeName() is the one to print.
    Plan::PlanType type() const;
    QUuid storage() const { return m_storage; }
    QString planXml() const { return m_planXml; }

    Plan::PlanStatus status() const { return m_status; }
    void setStatus(Plan::PlanStatus status) { m_status = status; }
    // The schedule as the service describes it for people (its next run).
    QString schedule() const { return m_schedule; }
    void setSchedule(const QString& schedule) { m_schedule = schedule; }

    // The figures of the last run; an invalid time when the plan never ran.
    QDateTime lastRunTime() const { return m_lastRunTime; }
    void setLastRunTime(const QDateTime& time) { m_lastRunTime = time; }
    Plan::PlanResult lastRunStatus() const { return m_lastRunStatus; }
    void setLastRunStatus(Plan::PlanResult result) { m_lastRunStatus = result; }
    QString lastRunMessage() const { return m_lastRunMessage; }
    void setLastRunMessage(const QString& message) { m_lastRunMessage = message; }
    // Milliseconds.
    qint64 lastDuration() const { return m_lastDuration; }
    void setLastDuration(qint64 milliseconds) { m_lastDuration = milliseconds; }
    qint64 lastFileCount() const { return m_lastFileCount; }
    void setLastFileCount(qint64 count) { m_lastFileCount = count; }
    // Bytes.
    qint64 lastFileSize() const { return m_lastFileSize; }
    void setLastFileSize(qint64 bytes) { m_lastFileSize = bytes; }
    qint64 lastUploadedCount() const { return m_lastUploadedCount; }
    void setLastUploadedCount(qint64 count) { m_lastUploadedCount = count; }
    qint64 lastFailedCount() const { return m_lastFailedCount; }
    void setLastFailedCount(qint64 count) { m_lastFailedCount = count; }
    // The steps of the current or last run with their progress, as text.
    QString lastProgressSteps() const { return m_lastProgressSteps; }
    void setLastProgressSteps(const QString& steps) { m_lastProgressSteps = steps; }

private:
    QUuid m_id;
    QString m_name;
    QString m_type;
    QUuid m_storage;
    QString m_planXml;
    Plan::PlanStatus m_status;
    QString m_schedule;
    QDateTime m_lastRunTime;
    Plan::PlanResult m_lastRunStatus;
    QString m_lastRunMessage;
    qint64 m_lastDuration = 0;
    qint64 m_lastFileCount = 0;
    qint64 m_lastFileSize = 0;
    qint64 m_lastUploadedCount = 0;
    qint64 m_lastFailedCount = 0;
    QString m_lastProgressSteps;
};

} // namespace Orv::Info
