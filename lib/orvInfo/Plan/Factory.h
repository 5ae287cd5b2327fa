#pragma once

#include "orvInfo/Plan/Base.h"

#include <QDomDocument>
#include <QSharedPointer>
#include <QString>

namespace Orv::Info::Plan {

// Builds the plan class that a plan's XML form describes (a BackupFile or a
// RestoreFile, by its type and subtype). Any input is safe: a document that
// is not a readable plan gives a null pointer and the reason in *error.
class Factory
{
public:
    static QSharedPointer<Base> create(const QString& xml, QString* error = nullptr);
    static QSharedPointer<Base> create(const QDomDocument& document, QString* error = nullptr);
};

} // namespace Orv::Info::Plan
