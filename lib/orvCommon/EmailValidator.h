#pragma once

#include <QString>

namespace Orv::Common {

// Checks one e-mail address or a list of them separated by "," or ";" (spaces
// around the separators allowed), as the notification settings take them.
class EmailValidator
{
public:
    // Intermediate: nothing to judge yet (no address at all).
    enum class State
    {
        Invalid,
        Intermediate,
        Acceptable
    };

    static State validate(const QString& text);
    static bool isAddress(const QString& address);
};

} // namespace Orv::Common
