#pragma once

#include "service/ConfigFolder.h"

#include <QJsonArray>

namespace Orv::Service {

// The storage accounts of the instance: one JSON file per account in the
// accounts folder, named after the account's ID and holding its record. A
// file that is not a record with an ID is logged and left out.
class AccountCatalog
{
public:
    explicit AccountCatalog(const QString& folder);

    QString folder() const { return m_folder.path(); }
    // The account records as stored, in file-name order.
    QJsonArray records() { return m_folder.rows(); }

private:
    ConfigFolder m_folder;
};

} // namespace Orv::Service
