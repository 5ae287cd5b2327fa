#pragma once

#include <QString>
#include <sys/types.h>

namespace Orv::Service {

// What a handler may know about the request besides its parameters: who sent
// it and whether the service has finished starting.
struct RequestContext
{
    quint64 connectionId = 0;
    uid_t peerUid = 0;
    pid_t peerPid = 0;
    QString sessionId;
    int connectionType = 0;
    bool serviceReady = false;
};

} // namespace Orv::Service
