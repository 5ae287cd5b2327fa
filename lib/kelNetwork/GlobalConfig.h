#pragma once

#include <QMutex>
#include <QString>

namespace Kel::Network {

// Process-wide network settings that every connection of the client honours:
// which certificates are trusted, whether TLS errors are ignored, and how
// often a busy server is asked again. Programs fill it once at start-up from
// their settings; the getters are safe from any thread.
class GlobalConfig
{
public:
    static GlobalConfig* instance();

    // A PEM bundle used instead of the system's trust anchors; empty means
    // the system's.
    QString caInfoPath() const;
    void setCaInfoPath(const QString& path);

    // A PEM file of certificates trusted on top of the trust anchors (the
    // installation's own trusted-certificate file); empty means none.
    QString trustedCertificatesPath() const;
    void setTrustedCertificatesPath(const QString& path);

    // When on, no certificate is verified at all: the administrator's choice
    // for servers whose certificates cannot be fixed.
    bool ignoreSslErrors() const;
    void setIgnoreSslErrors(bool ignore);

    // How many times a request that the server asked to repeat (busy,
    // throttled, internal error) is sent again, and the first wait before it
    // in milliseconds; each later wait doubles.
    int connectionRetryAttempts() const;
    void setConnectionRetryAttempts(int attempts);
    int connectionRetryInterval() const;
    void setConnectionRetryInterval(int milliseconds);

private:
    GlobalConfig() = default;

    mutable QMutex m_mutex;
    QString m_caInfoPath;
    QString m_trustedCertificatesPath;
    bool m_ignoreSslErrors = false;
    int m_retryAttempts = 5;
    int m_retryInterval = 30000;
};

} // namespace Kel::Network

// The command line reaches the same object under the core library's name.
namespace Kel::Core {
using GlobalConfig = Kel::Network::GlobalConfig;
} // namespace Kel::Core
