#pragma once

#include <QByteArray>
#include <QProcess>
#include <QString>
#include <QTemporaryDir>
#include <QVariantMap>

namespace OrvTest {

// OpenSSH's sshd on 127.0.0.1 and a free port, run as root from a
// configuration in a temporary folder, serving SFTP to the dedicated test
// user that scripts/setup creates. The user logs in with its password or with
// a key made for the peer.
class SftpPeer
{
public:
    static constexpr const char* User = "orvtest";
    static constexpr const char* Password = "orvtest-sftp";

    SftpPeer();
    ~SftpPeer();
    SftpPeer(const SftpPeer&) = delete;
    SftpPeer& operator=(const SftpPeer&) = delete;

    // Makes the keys, starts sshd and waits (at most 10 s) until it listens.
    bool start(QString* error);
    void stop();

    int port() const { return m_port; }
    // The private key text authorised for the user, and one that is not.
    QByteArray clientKey() const { return m_clientKey; }
    QByteArray strangerKey() const { return m_strangerKey; }
    // The server's public host key, as a known-hosts line wants it.
    QByteArray hostKeyLine() const { return m_hostKeyLine; }

    // A fresh folder below the peer's folder, owned by the test user (or by
    // root when not), with the given mode. Returns its absolute path.
    QString makeFolder(const QString& name, int mode = 0700, bool ownedByUser = true) const;
    QString path(const QString& relative) const { return m_dir.filePath(relative); }

    // An account configuration for this server: password login to the
    // container, no proxy.
    QVariantMap config(const QString& container) const;

private:
    bool makeKey(const QString& name, QByteArray* privateKey, QByteArray* publicKey,
                 QString* error) const;

    QTemporaryDir m_dir;
    QProcess m_process;
    QByteArray m_clientKey;
    QByteArray m_strangerKey;
    QByteArray m_hostKeyLine;
    int m_port = 0;
};

} // namespace OrvTest
