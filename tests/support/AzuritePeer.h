#pragma once

#include "support/PeerProcess.h"

#include <QStringList>
#include <QTemporaryDir>
#include <QVariantMap>

namespace OrvTest {

// The Azure Blob emulator (azurite-blob from node_modules/) on 127.0.0.1 and a
// free port, with its data in a temporary folder, telemetry off, and the
// given containers made once it listens. It serves the emulator's
// well-known account with path-style addresses and checks Shared Key
// signatures.
class AzuritePeer
{
public:
    static constexpr const char* Account = "devstoreaccount1";
    static constexpr const char* Key =
        "Eby8vdM02xNOcqFlqUwJPLlmEtlCDXJ1OUzFT50uSRZ6IFsuFq2UVErCz4I6tq/K1SZFPTOtr/"
        "KBHBeksoGMGw==";

    explicit AzuritePeer(const QStringList& containers = {QStringLiteral("orv-test")});

    // Starts the emulator, waits (at most 30 s) until it listens and makes
    // the containers; false with the reason otherwise.
    bool start(QString* error);
    void stop() { m_process.stop(); }

    int port() const { return m_port; }
    QString endpoint() const { return QStringLiteral("http://127.0.0.1:%1").arg(m_port); }

    // An account configuration for the emulator: the custom Azure type at
    // its endpoint, the well-known account and key, quick retries.
    QVariantMap config(const QString& container = QStringLiteral("orv-test")) const;

private:
    bool makeContainer(const QString& name, QString* error) const;

    QStringList m_containers;
    QTemporaryDir m_dir;
    PeerProcess m_process;
    int m_port = 0;
};

} // namespace OrvTest
