#pragma once

#include <QTextStream>

// The console stream: everything a command prints for the administrator goes
// through it to standard output. Each temporary flushes when it goes away, so
// output appears in order even when the process ends abruptly afterwards.
class KelDebug
{
public:
    explicit KelDebug(const char* category = "");
    ~KelDebug();
    KelDebug(const KelDebug&) = delete;
    KelDebug& operator=(const KelDebug&) = delete;

    QTextStream& output();

private:
    QTextStream& m_stream;
};
