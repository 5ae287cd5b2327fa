#pragma once

#include "kelCloud/Types.h"

#include <QMap>
#include <QString>

namespace Orv::CLI {

// The account types the command line can create: their command names (the
// word after "account add"), provider types and display names. Built once,
// on first use.
class AccountTypes
{
public:
    static const QMap<QString, Kel::Cloud::Type>& NameToType();
    static const QMap<Kel::Cloud::Type, QString>& TypeToName();
    static const QMap<QString, QString>& NameToExtendedName();
    static const QMap<Kel::Cloud::Type, QString>& TypeToExtendedName();

    // The display name of any provider type: the table's, else the cloud
    // library's type name.
    static QString displayName(Kel::Cloud::Type type);
};

} // namespace Orv::CLI
