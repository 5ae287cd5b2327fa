#include "service/SettingsWatcher.h"

#include "kelNetwork/GlobalConfig.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Installation.h"
#include "orvCommon/NetworkSettings.h"
#include "service/ServiceLog.h"

#include <QDir>
#include <cstdio>

namespace Orv::Service {

namespace {

namespace Installation = SHARED::defines::common;

// A change of several keys arrives as several rewrites in a row; they are
// taken together once the folder has been quiet this long.
constexpr int kSettleMs = 50;

} // namespace

SettingsWatcher::Values SettingsWatcher::Values::current()
{
    DefaultSettings* store = DefaultSettings::instance();
    Values values;
    values.level = Installation::logLevel();
    values.rotateDays = Installation::logRotateDays();
    values.logPath = Installation::logPath();
    values.ignoreSsl = store->getIgnoreSSL();
    values.retryAttempts = store->getConnectionRetryAttempts();
    values.retryInterval = store->getConnectionRetryInterval();
    return values;
}

bool SettingsWatcher::Values::sameLogging(const Values& other) const
{
    return level == other.level && rotateDays == other.rotateDays && logPath == other.logPath;
}

bool SettingsWatcher::Values::sameNetwork(const Values& other) const
{
    return ignoreSsl == other.ignoreSsl && retryAttempts == other.retryAttempts &&
           retryInterval == other.retryInterval;
}

SettingsWatcher::SettingsWatcher(QObject* parent) : QObject(parent)
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(kSettleMs);
    connect(&m_settle, &QTimer::timeout, this, &SettingsWatcher::reload);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, &m_settle,
            QOverload<>::of(&QTimer::start));
}

void SettingsWatcher::reportDamage(bool atStart)
{
    const DefaultSettings* store = DefaultSettings::instance();
    const DefaultSettings::FileState state = store->fileState();
    if (state == m_reportedState)
        return;
    m_reportedState = state;
    QString problem;
    if (state == DefaultSettings::FileState::Corrupt)
        problem = QStringLiteral("is damaged");
    else if (state == DefaultSettings::FileState::Unreadable)
        problem = QStringLiteral("cannot be read");
    else
        return;
    const QString text =
        QStringLiteral("The settings file %1 %2; the defaults apply until it is repaired")
            .arg(store->filePath(), problem);
    qCWarning(lcConfig).noquote() << text;
    // At start-up the administrator may be watching the terminal, not the log.
    if (atStart)
        std::fprintf(stderr, "orvd: %s\n", qPrintable(text));
}

bool SettingsWatcher::start()
{
    reportDamage(true);
    m_applied = Values::current();
    Common::applyNetworkSettings();
    const QString folder = Defines::AppPath::to().config();
    if (!QDir().mkpath(folder) || !m_watcher.addPath(folder)) {
        qCWarning(lcConfig).noquote()
            << "Cannot watch" << folder << "; settings changes apply at the next start";
        return false;
    }
    return true;
}

void SettingsWatcher::applyLogging()
{
    Kel::LogManager* log = Kel::LogManager::instance();
    const Kel::LogLevel level = Installation::logLevel();
    const QString chosen = Installation::logPath();
    log->setLogLevel(level);
    log->setRotateDays(Installation::logRotateDays());
    log->setLogPath(chosen);
    if (!log->init() && chosen != DefaultSettings::getDefaultLogPath()) {
        log->setLogPath(DefaultSettings::getDefaultLogPath());
        log->init();
        qCWarning(lcConfig).noquote() << "Cannot write logs in" << chosen << "; using"
                                      << DefaultSettings::getDefaultLogPath();
    }
    // Debug lines are not even formatted unless someone will read them.
    QLoggingCategory::setFilterRules(level == Kel::LogLevel::Debug || Installation::isDebug()
                                         ? QString()
                                         : QStringLiteral("orvd.*.debug=false"));
}

void SettingsWatcher::reload()
{
    DefaultSettings::instance()->reload();
    reportDamage(false);
    const Values now = Values::current();
    if (!now.sameLogging(m_applied)) {
        qCInfo(lcConfig).noquote() << "Logging changes to level" << Kel::logLevelName(now.level)
                                   << "rotation" << now.rotateDays << "day(s) in" << now.logPath;
        applyLogging();
        qCInfo(lcConfig).noquote() << "Logging here at level" << Kel::logLevelName(now.level);
    }
    if (!now.sameNetwork(m_applied)) {
        Common::applyNetworkSettings();
        const Kel::Network::GlobalConfig* network = Kel::Network::GlobalConfig::instance();
        qCInfo(lcConfig).noquote()
            << "Connection retries now" << network->connectionRetryAttempts() << "attempt(s),"
            << network->connectionRetryInterval() << "ms apart;"
            << (network->ignoreSslErrors() ? "ignoring" : "checking") << "certificates";
    }
    m_applied = now;
}

} // namespace Orv::Service
