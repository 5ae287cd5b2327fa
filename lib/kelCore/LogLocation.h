#pragma once

#include <QString>

namespace Kel {

// Whether a folder can take the client's log files. The service and the
// command line may run under different accounts and both write there, so the
// folder must be open to everyone.
class LogLocation
{
public:
    enum class Status
    {
        NoError,
        EmptyPath,
        CannotCreate,
        NoPermissions
    };

    // Creates a missing folder (open to everyone, as it must be); never changes
    // the permissions of a folder that already exists.
    static Status check(const QString& path);
    static QString message(Status status);
};

} // namespace Kel
