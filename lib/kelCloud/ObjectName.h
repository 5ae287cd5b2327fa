#pragma once

#include "kelCloud/Status.h"

#include <QString>

namespace Kel::Cloud {

// The names objects may have, the same for every backend so that a
// repository moves between stores unchanged: relative, "/" between parts,
// no empty, "." or ".." part, no NUL, at most 1024 bytes of UTF-8. Names whose
// last part starts with ".orv-" are the library's own (probes, partial
// writes) and are refused too.
class ObjectName
{
public:
    static Status check(const QString& name);
    // A listing prefix: empty, or a name, or a name followed by "/".
    static Status checkPrefix(const QString& prefix);
    // Whether a listing shows the entry (the library's own files are hidden).
    static bool isListed(const QString& lastPart);
    // A fresh name for a probe or a partial write, unique to the call.
    static QString reserved(const QString& kind);
};

} // namespace Kel::Cloud
