#pragma once

#include <QString>

namespace Orv::Defines {

// Where an installation keeps its files. With ORV_ROOT set, one folder holds a
// whole self-contained instance (config/, logs/, data/, run/); without it the
// system locations are used.
class AppPath
{
public:
    static const AppPath& to();
    // The application path of the current client generation; the same
    // installation as to(), kept as its own entry point for callers that ask
    // for it by name.
    static const AppPath& toV2();
    // Re-reads ORV_ROOT; for tests that switch instances inside one process.
    static void reload();

    QString root() const { return m_root; }
    QString config() const { return m_config; }
    QString logs() const { return m_logs; }
    QString data() const { return m_data; }
    QString run() const { return m_run; }

    QString accounts() const;
    QString plans() const;
    QString installationFile() const;
    QString brandingFile() const;
    QString settingsFile() const;
    QString proxyFile() const;
    QString keyFile() const;
    // The server certificates the administrator chose to trust (PEM).
    QString trustedCertificatesFile() const;
    // The SSH host keys of the SFTP servers accounts use.
    QString knownHostsFile() const;
    QString databaseFile() const;
    QString serviceSocket() const;
    QString servicePidFile() const;

private:
    AppPath();
    QString m_root;
    QString m_config;
    QString m_logs;
    QString m_data;
    QString m_run;
};

} // namespace Orv::Defines
