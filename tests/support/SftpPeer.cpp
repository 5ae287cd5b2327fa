#include "support/SftpPeer.h"

#include "kelCloud/Config.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTcpServer>
#include <QTcpSocket>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace OrvTest {

namespace {

QByteArray readFile(const QString& path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& data, int mode)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(data) != data.size())
        return false;
    file.close();
    return ::chmod(QFile::encodeName(path).constData(), static_cast<mode_t>(mode)) == 0;
}

int freePort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost, 0);
    return probe.serverPort();
}

bool listens(int port)
{
    QTcpSocket socket;
    socket.connectToHost(QHostAddress::LocalHost, static_cast<quint16>(port));
    return socket.waitForConnected(200);
}

} // namespace

SftpPeer::SftpPeer()
{
    // The test user must reach the files below the folder.
    ::chmod(QFile::encodeName(m_dir.path()).constData(), 0755);
}

SftpPeer::~SftpPeer()
{
    stop();
}

bool SftpPeer::makeKey(const QString& name, QByteArray* privateKey, QByteArray* publicKey,
                       QString* error) const
{
    const QString file = m_dir.filePath(name);
    const int result = QProcess::execute(
        QStringLiteral("ssh-keygen"),
        {QStringLiteral("-q"), QStringLiteral("-t"), QStringLiteral("ed25519"),
         QStringLiteral("-N"), QString(), QStringLiteral("-C"), name, QStringLiteral("-f"), file});
    if (result != 0) {
        *error = QStringLiteral("ssh-keygen failed for ") + name;
        return false;
    }
    *privateKey = readFile(file);
    *publicKey = readFile(file + QStringLiteral(".pub")).trimmed();
    return true;
}

bool SftpPeer::start(QString* error)
{
    if (::getpwnam(User) == nullptr) {
        *error = QStringLiteral("the test user %1 is missing; run scripts/setup").arg(User);
        return false;
    }
    QByteArray hostKey;
    QByteArray clientPublic;
    QByteArray strangerPublic;
    if (!makeKey(QStringLiteral("hostkey"), &hostKey, &m_hostKeyLine, error) ||
        !makeKey(QStringLiteral("clientkey"), &m_clientKey, &clientPublic, error) ||
        !makeKey(QStringLiteral("strangerkey"), &m_strangerKey, &strangerPublic, error))
        return false;
    // Only the first two words of the public key line: type and key.
    m_hostKeyLine = m_hostKeyLine.split(' ').mid(0, 2).join(' ');
    if (!writeFile(m_dir.filePath(QStringLiteral("authorized_keys")), clientPublic + '\n', 0644)) {
        *error = QStringLiteral("cannot write authorized_keys");
        return false;
    }
    QDir().mkpath(QStringLiteral("/run/sshd"));
    m_port = freePort();
    const QByteArray config =
        QStringLiteral("Port %1\n"
                       "ListenAddress 127.0.0.1\n"
                       "HostKey %2\n"
                       "PidFile %3\n"
                       "AuthorizedKeysFile %4\n"
                       "UsePAM no\n"
                       "StrictModes no\n"
                       "PasswordAuthentication yes\n"
                       "KbdInteractiveAuthentication no\n"
                       "PermitRootLogin no\n"
                       "AllowUsers %5\n"
                       "Subsystem sftp internal-sftp\n"
                       "LogLevel ERROR\n")
            .arg(m_port)
            .arg(m_dir.filePath(QStringLiteral("hostkey")),
                 m_dir.filePath(QStringLiteral("sshd.pid")),
                 m_dir.filePath(QStringLiteral("authorized_keys")), QLatin1String(User))
            .toUtf8();
    const QString configFile = m_dir.filePath(QStringLiteral("sshd_config"));
    if (!writeFile(configFile, config, 0600)) {
        *error = QStringLiteral("cannot write sshd_config");
        return false;
    }
    m_process.setProcessChannelMode(QProcess::MergedChannels);
    m_process.start(QStringLiteral("/usr/sbin/sshd"),
                    {QStringLiteral("-D"), QStringLiteral("-e"), QStringLiteral("-f"), configFile});
    if (!m_process.waitForStarted(5000)) {
        *error = QStringLiteral("sshd did not start: ") + m_process.errorString();
        return false;
    }
    QElapsedTimer timer;
    timer.start();
    while (timer.elapsed() < 10000 && m_process.state() == QProcess::Running) {
        if (listens(m_port))
            return true;
        m_process.waitForFinished(50);
    }
    *error = QStringLiteral("sshd did not listen: ") + QString::fromUtf8(m_process.readAll());
    return false;
}

void SftpPeer::stop()
{
    if (m_process.state() == QProcess::NotRunning)
        return;
    m_process.terminate();
    if (!m_process.waitForFinished(5000)) {
        m_process.kill();
        m_process.waitForFinished(5000);
    }
}

QString SftpPeer::makeFolder(const QString& name, int mode, bool ownedByUser) const
{
    const QString folder = m_dir.filePath(name);
    QDir().mkpath(folder);
    const passwd* user = ::getpwnam(User);
    if (ownedByUser && user)
        ::chown(QFile::encodeName(folder).constData(), user->pw_uid, user->pw_gid);
    ::chmod(QFile::encodeName(folder).constData(), static_cast<mode_t>(mode));
    return folder;
}

QVariantMap SftpPeer::config(const QString& container) const
{
    namespace Config = Kel::Cloud::Config;
    return {
        {QLatin1String(Config::Type), QStringLiteral("Sftp")},
        {QLatin1String(Config::Endpoint), QStringLiteral("127.0.0.1")},
        {QLatin1String(Config::Port), QString::number(m_port)},
        {QLatin1String(Config::User), QLatin1String(User)},
        {QLatin1String(Config::Password), QLatin1String(Password)},
        {QLatin1String(Config::Container), container},
        {QLatin1String(Config::KeepAlive), QStringLiteral("true")},
        {QLatin1String(Config::UseProxy), QStringLiteral("false")},
    };
}

} // namespace OrvTest
