#include "kelCore/Version.h"

namespace Kel::Core {

QString Version::string()
{
    return QStringLiteral(ORV_VERSION_STRING);
}

QVersionNumber Version::number()
{
    return QVersionNumber::fromString(string());
}

} // namespace Kel::Core
