#include "kelNetwork/ComputerName.h"

#include <QSysInfo>

namespace Kel::Network {

QString ComputerName::name()
{
    // The short host name: a domain suffix would make prefixes differ between
    // machines that resolve the same host differently.
    const QString host = QSysInfo::machineHostName();
    const int dot = host.indexOf(QLatin1Char('.'));
    const QString shortName = dot > 0 ? host.left(dot) : host;
    return shortName.isEmpty() ? QStringLiteral("localhost") : shortName;
}

} // namespace Kel::Network
