#pragma once

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
    QString typeName() const { return m_type; }
    QUuid storage() const { return m_storage; }
    QString planXml() const { return m_planXml; }

private:
    QUuid m_id;
    QString m_name;
    QString m_type;
    QUuid m_storage;
    QString m_planXml;
};

} // namespace Orv::Info
