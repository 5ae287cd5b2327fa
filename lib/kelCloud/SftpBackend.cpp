#include "kelCloud/SftpBackend.h"

#include "kelCloud/Config.h"
#include "kelCloud/ConfigReader.h"
#include "kelCloud/FolderNames.h"
#include "kelCloud/ObjectName.h"
#include "kelNetwork/Endpoint.h"
#include "kelNetwork/ProxyTunnel.h"

#include <QDebug>
#include <QFile>
#include <QIODevice>
#include <fcntl.h>
#include <libssh/libssh.h>
#include <libssh/sftp.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Kel::Cloud {

namespace {

constexpr long ConnectTimeoutSeconds = 15;
constexpr int ChunkSize = 32 * 1024;

struct KeyDeleter
{
    void operator()(ssh_key key) const { ssh_key_free(key); }
};

struct FileCloser
{
    void operator()(sftp_file file) const { sftp_close(file); }
};

struct AttributesDeleter
{
    void operator()(sftp_attributes attributes) const { sftp_attributes_free(attributes); }
};

struct FolderCloser
{
    void operator()(sftp_dir folder) const { sftp_closedir(folder); }
};

using File = std::unique_ptr<sftp_file_struct, FileCloser>;
using Attributes = std::unique_ptr<sftp_attributes_struct, AttributesDeleter>;
using Folder = std::unique_ptr<sftp_dir_struct, FolderCloser>;

Status invalid(const QString& message)
{
    return Status::failure(Operation::Error::InvalidConfiguration, message);
}

QDateTime modifiedOf(const sftp_attributes_struct& attributes)
{
    // Version 3 of the protocol, the common one, carries 32-bit times.
    const quint64 seconds = attributes.mtime64 != 0 ? attributes.mtime64 : attributes.mtime;
    return QDateTime::fromSecsSinceEpoch(static_cast<qint64>(seconds), Qt::UTC);
}

QString parentFolder(const QString& path)
{
    const int slash = path.lastIndexOf(QLatin1Char('/'));
    return slash <= 0 ? path.left(slash + 1) : path.left(slash);
}

void enableKeepAlive(int socket)
{
    // The SSH library sends nothing on an idle connection; the system's TCP
    // keep-alive notices a vanished peer and keeps middle boxes from dropping
    // the connection during long pauses of a backup.
    const int on = 1;
    const int idle = 60;
    const int interval = 20;
    const int count = 3;
    ::setsockopt(socket, SOL_SOCKET, SO_KEEPALIVE, &on, sizeof(on));
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPIDLE, &idle, sizeof(idle));
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPINTVL, &interval, sizeof(interval));
    ::setsockopt(socket, IPPROTO_TCP, TCP_KEEPCNT, &count, sizeof(count));
}

} // namespace

SftpBackend::SftpBackend(const Settings& settings) : m_settings(settings) {}

SftpBackend::~SftpBackend()
{
    disconnect();
}

std::unique_ptr<Backend> SftpBackend::create(const QVariantMap& config, Status* status)
{
    const ConfigReader reader(config);
    const Kel::Network::Endpoint endpoint =
        Kel::Network::Endpoint::parse(reader.text(Config::Endpoint));
    if (!endpoint.isValid()) {
        *status = invalid(QStringLiteral("the server \"%1\" is not a host name or address")
                              .arg(reader.text(Config::Endpoint)));
        return nullptr;
    }
    Settings settings;
    settings.host = endpoint.host;
    bool portOk = true;
    settings.port = static_cast<int>(
        reader.number(Config::Port, endpoint.port > 0 ? endpoint.port : 22, &portOk));
    if (!portOk || settings.port <= 0 || settings.port > 65535) {
        *status = invalid(
            QStringLiteral("the port \"%1\" is not a port number").arg(reader.text(Config::Port)));
        return nullptr;
    }
    settings.user = reader.text(Config::User);
    settings.password = reader.raw(Config::Password);
    settings.privateKey = reader.raw(Config::PrivateKey);
    settings.container = reader.text(Config::Container);
    settings.keepAlive = reader.flag(Config::KeepAlive, true);
    if (reader.flag(Config::UseProxy, true))
        settings.proxy = reader.proxy();
    settings.knownHostsFile = reader.text(Config::KnownHostsFile);
    if (settings.user.isEmpty())
        *status = invalid(QStringLiteral("the user name is missing"));
    else if (settings.password.isEmpty() && settings.privateKey.trimmed().isEmpty())
        *status = invalid(QStringLiteral("neither a password nor a private key is given"));
    else if (settings.container.isEmpty())
        *status = invalid(QStringLiteral("the container path is missing"));
    else
        *status = Status::success();
    if (!status->ok())
        return nullptr;
    return std::unique_ptr<Backend>(new SftpBackend(settings));
}

// --- connection -------------------------------------------------------------

Status SftpBackend::connect()
{
    if (m_sftp && ssh_is_connected(m_session))
        return Status::success();
    disconnect();
    Status status = openSession();
    if (status.ok())
        status = verifyHostKey();
    if (status.ok())
        status = authenticate();
    if (status.ok())
        status = openSftp();
    if (!status.ok())
        disconnect();
    return status;
}

Status SftpBackend::openSession()
{
    m_session = ssh_new();
    if (!m_session)
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("the SSH library could not be initialised"));
    const QByteArray host = m_settings.host.toUtf8();
    const QByteArray user = m_settings.user.toUtf8();
    const unsigned int port = static_cast<unsigned int>(m_settings.port);
    const long timeout = ConnectTimeoutSeconds;
    const int off = 0;
    ssh_options_set(m_session, SSH_OPTIONS_HOST, host.constData());
    ssh_options_set(m_session, SSH_OPTIONS_PORT, &port);
    ssh_options_set(m_session, SSH_OPTIONS_USER, user.constData());
    ssh_options_set(m_session, SSH_OPTIONS_TIMEOUT, &timeout);
    // The service's own settings decide, not the files of whoever runs it.
    ssh_options_set(m_session, SSH_OPTIONS_PROCESS_CONFIG, &off);
    if (!m_settings.knownHostsFile.isEmpty()) {
        const QByteArray file = QFile::encodeName(m_settings.knownHostsFile);
        ssh_options_set(m_session, SSH_OPTIONS_KNOWNHOSTS, file.constData());
        ssh_options_set(m_session, SSH_OPTIONS_GLOBAL_KNOWNHOSTS, "/dev/null");
    }
    const QString where = QStringLiteral("%1:%2").arg(m_settings.host).arg(m_settings.port);
    if (m_settings.proxy.enabled()) {
        QString error;
        const int socket =
            Kel::Network::ProxyTunnel::open(m_settings.host, m_settings.port, m_settings.proxy,
                                            ConnectTimeoutSeconds * 1000, &error);
        if (socket < 0)
            return Status::failure(
                Operation::Error::Unreachable,
                QStringLiteral("cannot reach %1 through the proxy: %2").arg(where, error));
        // The session uses the socket but does not close it; disconnect() does.
        m_tunnel = socket;
        ssh_options_set(m_session, SSH_OPTIONS_FD, &socket);
    }
    if (ssh_connect(m_session) != SSH_OK)
        return Status::failure(Operation::Error::Unreachable,
                               QStringLiteral("cannot connect to %1: %2")
                                   .arg(where, QString::fromUtf8(ssh_get_error(m_session))));
    if (m_settings.keepAlive)
        enableKeepAlive(ssh_get_fd(m_session));
    return Status::success();
}

Status SftpBackend::verifyHostKey()
{
    if (m_settings.knownHostsFile.isEmpty())
        return Status::success();
    switch (ssh_session_is_known_server(m_session)) {
    case SSH_KNOWN_HOSTS_OK:
        return Status::success();
    case SSH_KNOWN_HOSTS_UNKNOWN:
    case SSH_KNOWN_HOSTS_NOT_FOUND:
        if (ssh_session_update_known_hosts(m_session) != SSH_OK)
            return Status::failure(Operation::Error::Unknown,
                                   QStringLiteral("cannot record the host key of %1 in %2: %3")
                                       .arg(m_settings.host, m_settings.knownHostsFile,
                                            QString::fromUtf8(ssh_get_error(m_session))));
        qInfo() << "Recorded the host key of" << m_settings.host << "on first contact";
        return Status::success();
    case SSH_KNOWN_HOSTS_CHANGED:
    case SSH_KNOWN_HOSTS_OTHER:
        return Status::failure(
            Operation::Error::Authorization,
            QStringLiteral("the host key of %1 differs from the one recorded in %2; if the "
                           "server's key was changed on purpose, remove its line there")
                .arg(m_settings.host, m_settings.knownHostsFile));
    default:
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("cannot check the host key of %1: %2")
                .arg(m_settings.host, QString::fromUtf8(ssh_get_error(m_session))));
    }
}

Status SftpBackend::authenticate()
{
    return m_settings.privateKey.trimmed().isEmpty() ? authenticateWithPassword()
                                                     : authenticateWithKey();
}

Status SftpBackend::authenticateWithPassword()
{
    const QByteArray password = m_settings.password.toUtf8();
    int result = ssh_userauth_password(m_session, nullptr, password.constData());
    if (result == SSH_AUTH_SUCCESS)
        return Status::success();
    if (result == SSH_AUTH_ERROR)
        return Status::failure(
            Operation::Error::Unreachable,
            QStringLiteral("the connection to %1 failed during login: %2")
                .arg(m_settings.host, QString::fromUtf8(ssh_get_error(m_session))));
    // Servers that check passwords through their own dialogue (PAM) offer
    // only keyboard-interactive; answer its prompts with the password.
    result = ssh_userauth_kbdint(m_session, nullptr, nullptr);
    for (int round = 0; result == SSH_AUTH_INFO && round < 5; ++round) {
        const int prompts = ssh_userauth_kbdint_getnprompts(m_session);
        for (int i = 0; i < prompts; ++i)
            ssh_userauth_kbdint_setanswer(m_session, static_cast<unsigned int>(i),
                                          password.constData());
        result = ssh_userauth_kbdint(m_session, nullptr, nullptr);
    }
    if (result == SSH_AUTH_SUCCESS)
        return Status::success();
    return Status::failure(
        Operation::Error::Authorization,
        QStringLiteral("%1 refused the password of user %2: %3")
            .arg(m_settings.host, m_settings.user, QString::fromUtf8(ssh_get_error(m_session))));
}

Status SftpBackend::authenticateWithKey()
{
    ssh_key imported = nullptr;
    const QByteArray text = m_settings.privateKey.toUtf8();
    if (ssh_pki_import_privkey_base64(text.constData(), nullptr, nullptr, nullptr, &imported) !=
        SSH_OK)
        return invalid(QStringLiteral("the private key cannot be read (a key protected by a "
                                      "passphrase is not supported)"));
    const std::unique_ptr<ssh_key_struct, KeyDeleter> key(imported);
    const int result = ssh_userauth_publickey(m_session, nullptr, key.get());
    if (result == SSH_AUTH_SUCCESS)
        return Status::success();
    if (result == SSH_AUTH_ERROR)
        return Status::failure(
            Operation::Error::Unreachable,
            QStringLiteral("the connection to %1 failed during login: %2")
                .arg(m_settings.host, QString::fromUtf8(ssh_get_error(m_session))));
    return Status::failure(
        Operation::Error::Authorization,
        QStringLiteral("%1 refused the private key of user %2: %3")
            .arg(m_settings.host, m_settings.user, QString::fromUtf8(ssh_get_error(m_session))));
}

Status SftpBackend::openSftp()
{
    m_sftp = sftp_new(m_session);
    if (!m_sftp || sftp_init(m_sftp) != SSH_OK)
        return Status::failure(
            Operation::Error::NotSupported,
            QStringLiteral("%1 offers no SFTP service: %2")
                .arg(m_settings.host, QString::fromUtf8(ssh_get_error(m_session))));
    return Status::success();
}

void SftpBackend::disconnect()
{
    if (m_sftp)
        sftp_free(m_sftp);
    m_sftp = nullptr;
    if (m_session) {
        if (ssh_is_connected(m_session))
            ssh_disconnect(m_session);
        ssh_free(m_session);
    }
    m_session = nullptr;
    if (m_tunnel >= 0)
        ::close(m_tunnel);
    m_tunnel = -1;
}

// --- helpers ----------------------------------------------------------------

QString SftpBackend::pathOf(const QString& name) const
{
    if (name.isEmpty())
        return m_settings.container;
    return m_settings.container.endsWith(QLatin1Char('/'))
               ? m_settings.container + name
               : m_settings.container + QLatin1Char('/') + name;
}

QByteArray SftpBackend::encoded(const QString& path) const
{
    return path.toUtf8();
}

Status SftpBackend::sftpFailure(const QString& what, const QString& path)
{
    const int code = sftp_get_error(m_sftp);
    const QString detail = QString::fromUtf8(ssh_get_error(m_session));
    const QString message = QStringLiteral("%1 %2: %3").arg(what, path, detail);
    switch (code) {
    case SSH_FX_NO_SUCH_FILE:
    case SSH_FX_NO_SUCH_PATH:
        return Status::failure(Operation::Error::ObjectNotFound, message);
    case SSH_FX_PERMISSION_DENIED:
    case SSH_FX_WRITE_PROTECT:
        return Status::failure(Operation::Error::Authorization, message);
    case SSH_FX_NO_CONNECTION:
    case SSH_FX_CONNECTION_LOST:
        return Status::failure(Operation::Error::Unreachable, message);
    default:
        if (!ssh_is_connected(m_session))
            return Status::failure(Operation::Error::Unreachable, message);
        return Status::failure(Operation::Error::Unknown, message);
    }
}

Status SftpBackend::containerPresent()
{
    const QString& container = m_settings.container;
    const Attributes attributes(sftp_stat(m_sftp, encoded(container).constData()));
    if (!attributes) {
        Status status = sftpFailure(QStringLiteral("cannot open folder"), container);
        if (status.error == Operation::Error::ObjectNotFound)
            status = Status::failure(Operation::Error::ContainerNotFound,
                                     QStringLiteral("the folder %1 does not exist on %2")
                                         .arg(container, m_settings.host));
        return status;
    }
    if (attributes->type != SSH_FILEXFER_TYPE_DIRECTORY)
        return Status::failure(
            Operation::Error::ContainerNotFound,
            QStringLiteral("%1 on %2 is not a folder").arg(container, m_settings.host));
    return Status::success();
}

Status SftpBackend::makeFolders(const QString& folder)
{
    const Attributes present(sftp_stat(m_sftp, encoded(folder).constData()));
    if (present && present->type == SSH_FILEXFER_TYPE_DIRECTORY)
        return Status::success();
    if (present)
        return Status::failure(Operation::Error::Unknown,
                               QStringLiteral("%1 is a file, not a folder").arg(folder));
    const QString parent = parentFolder(folder);
    if (!parent.isEmpty() && parent != folder) {
        const Status made = makeFolders(parent);
        if (!made.ok())
            return made;
    }
    if (sftp_mkdir(m_sftp, encoded(folder).constData(), 0700) == 0)
        return Status::success();
    // Another writer may have made it meanwhile.
    const Attributes again(sftp_stat(m_sftp, encoded(folder).constData()));
    if (again && again->type == SSH_FILEXFER_TYPE_DIRECTORY)
        return Status::success();
    return sftpFailure(QStringLiteral("cannot create folder"), folder);
}

// --- operations -------------------------------------------------------------

Status SftpBackend::check()
{
    Status status = connect();
    if (!status.ok())
        return status;
    status = containerPresent();
    if (!status.ok())
        return status;
    const QString probe = pathOf(ObjectName::reserved(QStringLiteral("probe")));
    const File file(
        sftp_open(m_sftp, encoded(probe).constData(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (!file) {
        status = sftpFailure(QStringLiteral("cannot write into"), m_settings.container);
        return status.error == Operation::Error::ObjectNotFound
                   ? Status::failure(Operation::Error::Unknown, status.message)
                   : status;
    }
    const bool written = sftp_write(file.get(), "probe", 5) == 5;
    if (!written)
        status = sftpFailure(QStringLiteral("cannot write into"), m_settings.container);
    sftp_unlink(m_sftp, encoded(probe).constData());
    return status;
}

Status SftpBackend::listContainers(QList<ObjectInfo>* containers)
{
    containers->clear();
    const Status status = connect();
    if (!status.ok())
        return status;
    if (FolderNames::isRoot(m_settings.container)) {
        const Status present = containerPresent();
        if (present.ok())
            containers->append({m_settings.container, -1, {}});
        return present;
    }
    const QString parent = FolderNames::parentOf(m_settings.container);
    const QString listed = parent.isEmpty() ? QStringLiteral(".") : parent;
    const Folder folder(sftp_opendir(m_sftp, encoded(listed).constData()));
    if (!folder)
        return sftpFailure(QStringLiteral("cannot list folder"), listed);
    while (const Attributes entry{sftp_readdir(m_sftp, folder.get())}) {
        const QString name = QString::fromUtf8(entry->name);
        if (entry->type != SSH_FILEXFER_TYPE_DIRECTORY || name == QLatin1String(".") ||
            name == QLatin1String(".."))
            continue;
        containers->append({FolderNames::sibling(m_settings.container, name), -1, {}});
    }
    return Status::success();
}

Status SftpBackend::walk(const QString& folder, const QString& prefix, QList<ObjectInfo>* objects)
{
    const Folder opened(sftp_opendir(m_sftp, encoded(pathOf(folder)).constData()));
    if (!opened) {
        const Status status = sftpFailure(QStringLiteral("cannot list folder"), pathOf(folder));
        return status.error == Operation::Error::ObjectNotFound ? Status::success() : status;
    }
    while (const Attributes entry{sftp_readdir(m_sftp, opened.get())}) {
        const QString base = QString::fromUtf8(entry->name);
        if (base == QLatin1String(".") || base == QLatin1String(".."))
            continue;
        const QString name = folder + base;
        if (entry->type == SSH_FILEXFER_TYPE_DIRECTORY) {
            const QString below = name + QLatin1Char('/');
            if (!below.startsWith(prefix) && !prefix.startsWith(below))
                continue;
            const Status status = walk(below, prefix, objects);
            if (!status.ok())
                return status;
            continue;
        }
        if (entry->type != SSH_FILEXFER_TYPE_REGULAR || !name.startsWith(prefix) ||
            !ObjectName::isListed(base))
            continue;
        objects->append({name, static_cast<qint64>(entry->size), modifiedOf(*entry)});
    }
    if (!sftp_dir_eof(opened.get()))
        return sftpFailure(QStringLiteral("cannot list folder"), pathOf(folder));
    return Status::success();
}

Status SftpBackend::list(const QString& prefix, QList<ObjectInfo>* objects)
{
    objects->clear();
    Status status = ObjectName::checkPrefix(prefix);
    if (status.ok())
        status = connect();
    if (status.ok())
        status = containerPresent();
    if (!status.ok())
        return status;
    return walk(prefix.left(prefix.lastIndexOf(QLatin1Char('/')) + 1), prefix, objects);
}

Status SftpBackend::stat(const QString& name, ObjectInfo* info)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = connect();
    if (!status.ok())
        return status;
    const Attributes attributes(sftp_stat(m_sftp, encoded(pathOf(name)).constData()));
    if (!attributes)
        return sftpFailure(QStringLiteral("cannot look at"), name);
    if (attributes->type != SSH_FILEXFER_TYPE_REGULAR)
        return Status::failure(Operation::Error::ObjectNotFound,
                               QStringLiteral("%1 is not a file").arg(name));
    *info = {name, static_cast<qint64>(attributes->size), modifiedOf(*attributes)};
    return Status::success();
}

Status SftpBackend::read(const QString& name, qint64 offset, qint64 length, QIODevice* sink)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = connect();
    if (!status.ok())
        return status;
    const File file(sftp_open(m_sftp, encoded(pathOf(name)).constData(), O_RDONLY, 0));
    if (!file)
        return sftpFailure(QStringLiteral("cannot read"), name);
    if (offset > 0 && sftp_seek64(file.get(), static_cast<uint64_t>(offset)) != 0)
        return sftpFailure(QStringLiteral("cannot read"), name);
    QByteArray buffer(ChunkSize, Qt::Uninitialized);
    qint64 done = 0;
    while (length < 0 || done < length) {
        const qint64 want = length < 0 ? ChunkSize : qMin<qint64>(ChunkSize, length - done);
        const ssize_t got = sftp_read(file.get(), buffer.data(), static_cast<size_t>(want));
        if (got < 0)
            return sftpFailure(QStringLiteral("cannot read"), name);
        if (got == 0)
            break;
        if (sink->write(buffer.constData(), got) != got)
            return Status::failure(
                Operation::Error::Unknown,
                QStringLiteral("cannot pass on %1: %2").arg(name, sink->errorString()));
        done += got;
    }
    return Status::success();
}

Status SftpBackend::upload(const QString& part, QIODevice* source, qint64 size)
{
    const File file(
        sftp_open(m_sftp, encoded(part).constData(), O_WRONLY | O_CREAT | O_EXCL, 0600));
    if (!file)
        return sftpFailure(QStringLiteral("cannot write"), part);
    qint64 done = 0;
    while (size < 0 || done < size) {
        const qint64 want = size < 0 ? ChunkSize : qMin<qint64>(ChunkSize, size - done);
        QByteArray chunk = source->read(want);
        if (chunk.isEmpty() && source->waitForReadyRead(30000))
            continue;
        if (chunk.isEmpty())
            break;
        for (int sent = 0; sent < chunk.size();) {
            const ssize_t wrote = sftp_write(file.get(), chunk.constData() + sent,
                                             static_cast<size_t>(chunk.size() - sent));
            if (wrote <= 0)
                return sftpFailure(QStringLiteral("cannot write"), part);
            sent += static_cast<int>(wrote);
        }
        done += chunk.size();
    }
    if (size >= 0 && done < size)
        return Status::failure(
            Operation::Error::Unknown,
            QStringLiteral("the data ended after %1 of %2 bytes").arg(done).arg(size));
    if (sftp_extension_supported(m_sftp, "fsync@openssh.com", "1") && sftp_fsync(file.get()) != 0)
        return sftpFailure(QStringLiteral("cannot write"), part);
    return Status::success();
}

Status SftpBackend::replace(const QString& part, const QString& target)
{
    if (sftp_rename(m_sftp, encoded(part).constData(), encoded(target).constData()) == 0)
        return Status::success();
    // Plain SFTP renames refuse an existing target, and this SSH library
    // offers no way to the server's replacing rename. Move the old object
    // aside first and bring it back if the new one cannot take its place: a
    // reader in between finds no object, never a partial one, and a failure
    // loses nothing.
    const Attributes present(sftp_stat(m_sftp, encoded(target).constData()));
    if (!present)
        return sftpFailure(QStringLiteral("cannot write"), target);
    const QString aside =
        parentFolder(target) + QLatin1Char('/') + ObjectName::reserved(QStringLiteral("old"));
    if (sftp_rename(m_sftp, encoded(target).constData(), encoded(aside).constData()) != 0)
        return sftpFailure(QStringLiteral("cannot replace"), target);
    if (sftp_rename(m_sftp, encoded(part).constData(), encoded(target).constData()) != 0) {
        const Status failed = sftpFailure(QStringLiteral("cannot replace"), target);
        sftp_rename(m_sftp, encoded(aside).constData(), encoded(target).constData());
        return failed;
    }
    sftp_unlink(m_sftp, encoded(aside).constData());
    return Status::success();
}

Status SftpBackend::write(const QString& name, QIODevice* source, qint64 size)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = connect();
    if (status.ok())
        status = containerPresent();
    if (!status.ok())
        return status;
    const QString target = pathOf(name);
    const QString folder = parentFolder(target);
    status = makeFolders(folder);
    if (!status.ok())
        return status;
    const QString part = folder + QLatin1Char('/') + ObjectName::reserved(QStringLiteral("part"));
    status = upload(part, source, size);
    if (status.ok())
        status = replace(part, target);
    if (!status.ok())
        sftp_unlink(m_sftp, encoded(part).constData());
    return status;
}

Status SftpBackend::remove(const QString& name)
{
    Status status = ObjectName::check(name);
    if (status.ok())
        status = connect();
    if (!status.ok())
        return status;
    if (sftp_unlink(m_sftp, encoded(pathOf(name)).constData()) == 0)
        return Status::success();
    status = sftpFailure(QStringLiteral("cannot delete"), name);
    return status.error == Operation::Error::ObjectNotFound ? Status::success() : status;
}

} // namespace Kel::Cloud
