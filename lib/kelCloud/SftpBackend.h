#pragma once

#include "kelCloud/Backend.h"
#include "kelNetwork/ProxySettings.h"

struct ssh_session_struct;
struct sftp_session_struct;

namespace Kel::Cloud {

// A folder on an SSH server (Config::Container, absolute or relative to the
// login folder) reached over SFTP. Logs in with Config::Password or with the
// private key text in Config::PrivateKey; Config::Port (else the endpoint's
// port, else 22); TCP keep-alive unless Config::KeepAlive is off; through the
// proxy values unless Config::UseProxy is off.
//
// Host keys: with Config::KnownHostsFile, a server's key is recorded there on
// first contact and every later contact must present the same key (a changed
// key fails as Authorization). Without it, keys are accepted unchecked.
//
// Replacing an existing object moves the old one aside for a moment (this
// SSH library cannot ask for the server's replacing rename): a reader may
// then find no object, but never a partial one.
//
// The connection is opened by the first call and kept for the next ones; a
// lost connection is opened again by the next call.
class SftpBackend : public Backend
{
public:
    static std::unique_ptr<Backend> create(const QVariantMap& config, Status* status);
    ~SftpBackend() override;

    Status check() override;
    Status listContainers(QList<ObjectInfo>* containers) override;
    Status list(const QString& prefix, QList<ObjectInfo>* objects) override;
    Status stat(const QString& name, ObjectInfo* info) override;
    Status read(const QString& name, qint64 offset, qint64 length, QIODevice* sink) override;
    Status write(const QString& name, QIODevice* source, qint64 size) override;
    Status remove(const QString& name) override;

    using Backend::read;
    using Backend::write;

private:
    struct Settings
    {
        QString host;
        int port = 22;
        QString user;
        QString password;
        QString privateKey;
        QString container;
        bool keepAlive = true;
        Kel::Network::ProxySettings proxy;
        QString knownHostsFile;
    };

    explicit SftpBackend(const Settings& settings);

    Status connect();
    Status openSession();
    Status verifyHostKey();
    Status authenticate();
    Status authenticateWithPassword();
    Status authenticateWithKey();
    Status openSftp();
    void disconnect();

    Status containerPresent();
    Status sftpFailure(const QString& what, const QString& path);
    QString pathOf(const QString& name) const;
    QByteArray encoded(const QString& path) const;
    Status makeFolders(const QString& folder);
    Status walk(const QString& folder, const QString& prefix, QList<ObjectInfo>* objects);
    Status upload(const QString& part, QIODevice* source, qint64 size);
    Status replace(const QString& part, const QString& target);

    Settings m_settings;
    ssh_session_struct* m_session = nullptr;
    sftp_session_struct* m_sftp = nullptr;
    // The socket through the proxy, when there is one.
    int m_tunnel = -1;
};

} // namespace Kel::Cloud
