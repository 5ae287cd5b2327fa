#include "orvCommon/AppPath.h"

#include <QDir>
#include <QFile>

namespace Orv::Defines {

namespace {

AppPath*& current()
{
    static AppPath* path = nullptr;
    return path;
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
