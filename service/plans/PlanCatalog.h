#pragma once

#include "service/ConfigFolder.h"

#include <QJsonArray>

namespace Orv::Service {

// The plans of the instance: one XML file per plan in the plans folder, read
// through the plan library. A file that is not a plan is logged and left out.
class PlanCatalog
{
public:
    explicit PlanCatalog(const QString& folder);

    QString folder() const { return m_folder.path(); }
    // The plan list rows (ID, Name, Type, Storage, PlanXml), in file-name order.
    QJsonArray rows() { return m_folder.rows(); }
    // Changes whenever rows() gives something new.
    quint64 generation() const { return m_folder.generation(); }

private:
    ConfigFolder m_folder;
};

} // namespace Orv::Service
