#pragma once

#include <QByteArray>
#include <QString>
#include <ostream>

// Lets test failures show Qt strings as text.
inline void PrintTo(const QString& text, std::ostream* out)
{
    *out << '"' << text.toStdString() << '"';
}

inline void PrintTo(const QByteArray& bytes, std::ostream* out)
{
    *out << '"' << bytes.toStdString() << '"';
}
