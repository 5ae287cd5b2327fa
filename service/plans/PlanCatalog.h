#pragma once

#include "orvInfo/Plan/Base.h"
#include "service/ConfigFolder.h"

#include <QDateTime>
#include <QJsonArray>
#include <QSharedPointer>
#include <QUuid>

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
    // The files left out of rows(), by name, with the reason.
    QMap<QString, QString> damaged() { return m_folder.skipped(); }

    // The whole plan, its passwords opened; null with the reason when there
    // is no such plan or its file cannot be read.
    QSharedPointer<Orv::Info::Plan::Base> load(const QUuid& id, QString* error);
    // Writes the plan (passwords sealed) to its own file, atomically, and
    // removes any other file that held it. Empty on success.
    QString save(const Orv::Info::Plan::Base& plan);
    QString remove(const QUuid& id);
    // When the service last wrote the plan; invalid for a plan whose file
    // was named by hand.
    QDateTime savedAt(const QUuid& id) const;

private:
    QString fileOf(const QUuid& id) const;
    // Every file whose plan has the ID: a file put there by hand may go by
    // another name.
    QStringList filesOf(const QUuid& id);

    ConfigFolder m_folder;
};

} // namespace Orv::Service
