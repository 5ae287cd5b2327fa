#pragma once

#include "kelCore/KelDebug.h"

#include <QString>

namespace Orv::CLI {

// Everything the command line prints for the administrator goes through the
// console stream, which is flushed after each piece.
inline void print(const QString& text)
{
    KelDebug("").output() << text;
}

} // namespace Orv::CLI
