#pragma once

#include <QString>

typedef void CURL;

namespace Kel::Network {

// A proxy as plain values, so that the network and cloud libraries need not
// know where the programs keep theirs.
struct ProxySettings
{
    enum class Type
    {
        None,
        Http,
        Socks5
    };

    Type type = Type::None;
    QString host;
    int port = 0;
    QString user;
    QString password;

    bool enabled() const { return type != Type::None && !host.isEmpty() && port > 0; }
    // "None", "Http" or "Socks5", any case; anything else is None.
    static Type typeFromName(const QString& name);

    // Sends the handle's traffic through this proxy, or straight to the server
    // when it is not enabled, whatever the environment's proxy variables say.
    void applyTo(CURL* curl) const;
};

} // namespace Kel::Network
