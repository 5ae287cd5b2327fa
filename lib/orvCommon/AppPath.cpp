#include "orvCommon/AppPath.h"

#include <QDir>
#include <QFile>
#include <mutex>

namespace Orv::Defines {

namespace {

AppPath*& current()
{
    static AppPath* path = nullptr;
    return path;
}

// Threads may ask for the paths first at the same moment (the service's
// workers, the settings store): one of them makes them.
std::mutex& currentMutex()
{
    static std::mutex mutex;
    return mutex;
}

} // namespace

AppPath::AppPath()
{
    const QString root = QFile::decodeName(qgetenv("ORV_ROOT"));
    if (root.isEmpty()) {
        m_config = QStringLiteral("/etc/orvclient/config");
        m_logs = QStringLiteral("/var/log/orvclient");
        m_data = QStringLiteral("/var/lib/orvclient");
        m_run = QStringLiteral("/run/orvclient");
        return;
    }
    const QDir dir(QDir(root).absolutePath());
    m_root = dir.absolutePath();
    m_config = dir.filePath(QStringLiteral("config"));
    m_logs = dir.filePath(QStringLiteral("logs"));
    m_data = dir.filePath(QStringLiteral("data"));
    m_run = dir.filePath(QStringLiteral("run"));
}

const AppPath& AppPath::to()
{
    std::lock_guard lock(currentMutex());
    if (!current())
        current() = new AppPath();
    return *current();
}

const AppPath& AppPath::toV2()
{
    return to();
}

void AppPath::reload()
{
    std::lock_guard lock(currentMutex());
    delete current();
    current() = new AppPath();
}

QString AppPath::accounts() const
{
    return QDir(m_config).filePath(QStringLiteral("accounts"));
}

QString AppPath::plans() const
{
    return QDir(m_config).filePath(QStringLiteral("plans"));
}

QString AppPath::installationFile() const
{
    return QDir(m_config).filePath(QStringLiteral("orvclient.conf"));
}

QString AppPath::brandingFile() const
{
    return QDir(m_config).filePath(QStringLiteral("branding.conf"));
}

QString AppPath::settingsFile() const
{
    return QDir(m_config).filePath(QStringLiteral("defaultSettings.conf"));
}

QString AppPath::proxyFile() const
{
    return QDir(m_config).filePath(QStringLiteral("proxy.conf"));
}

QString AppPath::keyFile() const
{
    return QDir(m_config).filePath(QStringLiteral("local.key"));
}

QString AppPath::trustedCertificatesFile() const
{
    return QDir(m_config).filePath(QStringLiteral("trustedCertificates.pem"));
}

QString AppPath::knownHostsFile() const
{
    return QDir(m_config).filePath(QStringLiteral("known_hosts"));
}

QString AppPath::databaseFile() const
{
    return QDir(m_data).filePath(QStringLiteral("orv.db"));
}

QString AppPath::serviceSocket() const
{
    return QDir(m_run).filePath(QStringLiteral("orvd.sock"));
}

QString AppPath::servicePidFile() const
{
    return QDir(m_run).filePath(QStringLiteral("orvd.pid"));
}

} // namespace Orv::Defines
