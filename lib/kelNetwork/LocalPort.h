#pragma once

#include <QtGlobal>

namespace Kel::Network {

// Whether a server of this machine could listen on a TCP port: the check binds
// the port on all local addresses, as a server would, and lets it go at once.
class LocalPort
{
public:
    enum class State
    {
        Free,
        InUse,
        Denied,
        Invalid
    };

    static State check(int port);
};

} // namespace Kel::Network
