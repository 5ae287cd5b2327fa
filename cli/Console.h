#pragma once

#include "kelCore/KelDebug.h"

#include <QString>
#include <cstdio>

namespace Orv::CLI {

// Everything the command line prints for the administrator goes through the
// console stream, which is flushed after each piece.
inline void print(const QString& text)
{
    KelDebug("").output() << text;
}

// A warning beside a command's own output: standard error, so that what the
// command prints on standard output stays as it is.
inline void warn(const QString& text)
{
    std::fputs(text.toLocal8Bit().constData(), stderr);
    std::fflush(stderr);
}

} // namespace Orv::CLI
