#pragma once

#include <QString>

namespace Kel::Network {

// Where a server is, as administrators write it: "host", "host:port",
// "[v6address]:port" or a URL ("https://host:port/path").
struct Endpoint
{
    QString scheme; // lower case; empty when none was written
    QString host;   // without brackets
    int port = 0;   // 0 when none was written
    QString path;   // empty or starting with "/"

    bool isValid() const { return !host.isEmpty() && port >= 0 && port <= 65535; }
    // The host as it goes into a URL: IPv6 addresses in brackets.
    QString urlHost() const;
    // "host:port" with the given port when none was written.
    QString authority(int defaultPort) const;

    // Invalid (empty host) when the text is not an endpoint.
    static Endpoint parse(const QString& text);
};

} // namespace Kel::Network
