#pragma once

#include "kelNetwork/ProxySettings.h"

#include <QString>

namespace Kel::Network {

// A TCP connection to a server through a proxy (HTTP CONNECT or SOCKS5), for
// protocols that speak over a plain socket of their own, such as SSH.
class ProxyTunnel
{
public:
    // Returns a connected socket that the caller owns and closes, or -1 with
    // the reason in error.
    static int open(const QString& host, int port, const ProxySettings& proxy, int timeoutMs,
                    QString* error);
};

} // namespace Kel::Network
