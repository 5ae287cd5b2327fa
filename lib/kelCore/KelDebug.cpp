#include "kelCore/KelDebug.h"

#include <cstdio>

namespace {

QTextStream& consoleStream()
{
    static QTextStream stream(stdout, QIODevice::WriteOnly);
    static const bool configured = [] {
        stream.setCodec("UTF-8");
        return true;
    }();
    Q_UNUSED(configured);
    return stream;
}

} // namespace

KelDebug::KelDebug(const char*) : m_stream(consoleStream()) {}

KelDebug::~KelDebug()
{
    m_stream.flush();
}

QTextStream& KelDebug::output()
{
    return m_stream;
}
