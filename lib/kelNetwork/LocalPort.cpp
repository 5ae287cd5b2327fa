#include "kelNetwork/LocalPort.h"

#include <cerrno>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kel::Network {

LocalPort::State LocalPort::check(int port)
{
    if (port < 1 || port > 65535)
        return State::Invalid;
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0)
        return State::Denied;
    // As a server sets it: connections of a previous run waiting out their
    // close must not count as a user of the port.
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_ANY);
    address.sin_port = htons(static_cast<quint16>(port));
    const int bound = ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof(address));
    const int reason = errno;
    ::close(fd);
    if (bound == 0)
        return State::Free;
    return reason == EADDRINUSE ? State::InUse : State::Denied;
}

} // namespace Kel::Network
