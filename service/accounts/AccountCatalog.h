#pragma once

#include "service/ConfigFolder.h"

#include <QJsonArray>
#include <QUuid>
#include <optional>

namespace Orv::Service {

// The storage accounts of the instance: one JSON file per account in the
// accounts folder, named after the account's ID and holding its record. A
// file that is not a record with an ID and a known type is damaged: it is
// logged and left out, reported on the service's standard error at the first
// listing (start-up), named in every answer that lists accounts, and can be
// removed by the ID its file is named after.
class AccountCatalog
{
public:
    explicit AccountCatalog(const QString& folder);

    QString folder() const { return m_folder.path(); }
    // The account records as stored, in file-name order.
    QJsonArray records();
    // The damaged files records() left out, as the account list's answer
    // names them.
    QJsonArray damaged();
    // Changes whenever records() gives something new.
    quint64 generation() const { return m_folder.generation(); }
    std::optional<QJsonObject> find(const QUuid& id);

    // Writes the record (which has an ID) whole and atomically as
    // "<uuid>.json", replacing the account's earlier file, whatever its name.
    // Returns an empty string on success, otherwise the reason.
    QString save(const QJsonObject& record);
    // Removes the account's file; an unknown id is an error.
    QString remove(const QUuid& id);
    // Removes the damaged file named after id; false when there is none.
    bool removeDamaged(const QUuid& id, QString* error);

private:
    QString fileOf(const QUuid& id) const;
    // Every file that holds the account, whatever its name.
    QStringList filesOf(const QUuid& id) const;
    QString removeFiles(const QStringList& files) const;

    ConfigFolder m_folder;
    bool m_reported = false;
};

} // namespace Orv::Service
