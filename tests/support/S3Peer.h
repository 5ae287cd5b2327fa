#pragma once

#include "support/PeerProcess.h"
#include "support/TestCertificates.h"

#include <QStringList>
#include <QTemporaryDir>
#include <QVariantMap>

namespace OrvTest {

// A real S3-compatible server (s3rver from node_modules/) on 127.0.0.1, on a
// port it picks, with its data in a temporary folder and the given buckets.
// Over https it presents a chain made for it (server certificate, then a test
// authority), which nothing trusts until a test says so.
class S3Peer
{
public:
    static constexpr const char* AccessKey = "S3RVER";
    static constexpr const char* SecretKey = "S3RVER";

    explicit S3Peer(bool https = false, const QStringList& buckets = {QStringLiteral("orv-test"),
                                                                      QStringLiteral("orv-other")});
    ~S3Peer();
    S3Peer(const S3Peer&) = delete;
    S3Peer& operator=(const S3Peer&) = delete;

    // Starts the server and waits (at most 30 s) until it listens; false with
    // the reason otherwise.
    bool start(QString* error);
    void stop();

    int port() const { return m_port; }
    QString endpoint() const { return QStringLiteral("127.0.0.1:%1").arg(m_port); }
    bool https() const { return m_https; }
    const TestCertificates& certificates() const { return m_certificates; }

    // An account configuration for this server: the given type name,
    // bucket and signature version ("0" or "1"), the right keys, quick retries.
    QVariantMap config(const QString& bucket = QStringLiteral("orv-test"),
                       const QString& signature = QStringLiteral("1"),
                       const QString& type = QStringLiteral("S3Compatible")) const;

private:
    bool m_https;
    QStringList m_buckets;
    QTemporaryDir m_dir;
    PeerProcess m_process;
    TestCertificates m_certificates;
    int m_port = 0;
};

} // namespace OrvTest
