#include "service/Service.h"

#include "kelCore/Version.h"
#include "kelNetwork/Ssl/PeerCertificates.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Database.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Installation.h"
#include "orvCommon/NetworkSettings.h"
#include "service/ServiceLog.h"
#include "service/SettingsWatcher.h"
#include "service/SignalBridge.h"
#include "service/accounts/StorageScan.h"
#include "service/config/ConfigTransferHandler.h"
#include "service/jobs/RunNotifier.h"
#include "service/maintenance/MaintenanceHandler.h"
#include "service/repository/RepositoryHandler.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QTimer>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

namespace Orv::Service {

namespace {

const char* signalName(int signalNumber)
{
    switch (signalNumber) {
    case SIGTERM:
        return "SIGTERM";
    case SIGINT:
        return "SIGINT";
    case SIGHUP:
        return "SIGHUP";
    default:
        return "a signal";
    }
}

QString systemError(int error)
{
    return QString::fromLocal8Bit(std::strerror(error));
}

// Tells systemd (Type=notify) how the service is doing; without NOTIFY_SOCKET
// in the environment this does nothing.
void notifySystemd(const QString& state)
{
    ::sd_notify(0, state.toUtf8().constData());
}

// mkdir -p that keeps the reason of a failure: 0 or an errno value.
int makeFolders(const QByteArray& path)
{
    struct stat status
    {
    };
    if (::stat(path.constData(), &status) == 0)
        return S_ISDIR(status.st_mode) ? 0 : ENOTDIR;
    if (errno != ENOENT)
        return errno;
    const int slash = path.lastIndexOf('/');
    if (slash > 0) {
        if (const int parentError = makeFolders(path.left(slash)))
            return parentError;
    }
    if (::mkdir(path.constData(), 0700) != 0 && errno != EEXIST)
        return errno;
    return 0;
}

enum class Strictness
{
    // The service cannot run without the folder: any problem stops the start.
    Required,
    // It can run without it: problems are reported and the start goes on.
    Optional
};

// The instance's folders hold secrets (config), the socket (run) and the paths
// of the user's files (data, logs): owner only. Folders made before, by hand,
// by a package or by an older version, are tightened too.
bool ensurePrivateFolder(const QString& path, Strictness strictness, QString* error)
{
    const QByteArray encoded = QFile::encodeName(path);
    if (const int createError = makeFolders(encoded)) {
        *error = createError == ENOTDIR
                     ? QStringLiteral("cannot create the folder %1: it or a folder above it "
                                      "exists and is not a folder")
                           .arg(path)
                     : QStringLiteral("cannot create the folder %1: %2")
                           .arg(path, systemError(createError));
        return false;
    }
    struct stat status
    {
    };
    if (::stat(encoded.constData(), &status) != 0) {
        *error = QStringLiteral("cannot read the folder %1: %2").arg(path, systemError(errno));
        return false;
    }
    const mode_t mode = status.st_mode & 07777;
    if (mode == 0700)
        return true;
    if (::chmod(encoded.constData(), 0700) != 0) {
        const QString problem = QStringLiteral("cannot make the folder %1 private (mode %2): %3")
                                    .arg(path, QString::number(mode, 8), systemError(errno));
        if (strictness == Strictness::Required) {
            *error = problem;
            return false;
        }
        qCWarning(lcService).noquote() << problem;
        std::fprintf(stderr, "orvd: %s\n", qPrintable(problem));
        return true;
    }
    qCInfo(lcService).noquote() << "Folder" << path << "made private: mode"
                                << QString::number(mode, 8) << "-> 700";
    return true;
}

// Whether a log line can be written into the file; otherwise the reason.
bool canWriteLog(const QString& path, QString* problem)
{
    const int fd = ::open(QFile::encodeName(path).constData(),
                          O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
    if (fd >= 0) {
        ::close(fd);
        return true;
    }
    *problem = systemError(errno);
    return false;
}

// The clock of the scheduler and the run history. A test may move it: with
// ORV_TEST_CLOCK_FILE set, the file holds a number of seconds added to the
// real time, read at every call.
Scheduler::Clock serviceClock()
{
    const QString file = qEnvironmentVariable("ORV_TEST_CLOCK_FILE");
    if (file.isEmpty())
        return [] { return QDateTime::currentDateTime(); };
    return [file] {
        QFile offset(file);
        const qint64 seconds =
            offset.open(QIODevice::ReadOnly) ? offset.readAll().trimmed().toLongLong() : 0;
        return QDateTime::currentDateTime().addSecs(seconds);
    };
}

} // namespace

Service::Service(QObject* parent)
    : QObject(parent), m_plans(Orv::Defines::AppPath::to().plans()),
      m_accounts(Orv::Defines::AppPath::to().accounts()),
      m_trustedStore(Orv::Defines::AppPath::to().trustedCertificatesFile()),
      m_runner(m_plans, m_accounts, m_history), m_planList(m_plans, m_history, m_runner),
      m_planEdit(m_plans, m_accounts, m_history, m_runner),
      m_scheduling(m_plans, m_history, m_runner, serviceClock()),
      m_sync(m_accounts, m_storageState, &StorageScan::run),
      m_connections(m_accounts, m_storageState, m_sync),
      m_accountChanges(m_accounts, m_storageState, m_sync),
      m_sslStore(
          m_trustedStore,
          [](const QString& endpoint, QString* error) {
              return Kel::Network::Ssl::fetchPeerCertificates(endpoint, error);
          },
          [this](const QUuid& type, const QJsonObject& message) {
              m_server.broadcast(type, message);
          }),
      m_dispatcher(m_registry), m_server(m_dispatcher)
{
    m_planList.install(m_registry);
    m_planEdit.install(m_registry);
    m_runner.install(m_registry);
    m_runner.setClock(serviceClock());
    m_planEdit.setChanged([this] { m_scheduling.sync(); });
    m_planList.setScheduleText([this](const QUuid& id) { return m_scheduling.describe(id); });
    m_runner.setCacheRoot(
        QDir(Orv::Defines::AppPath::to().data()).filePath(QStringLiteral("cache")));
    // A child: it goes after the runner, which it only listens to.
    (new RunNotifier(this))->watch(m_runner, m_plans, m_history);
    // A child too: its workers get copies of what they use, never the service.
    (new MaintenanceHandler(
         m_plans, m_accounts, m_storageState, m_history, m_trustedStore,
         [this](const QUuid& type, const QJsonObject& message) {
             m_server.broadcast(type, message);
         },
         this))
        ->install(m_registry);
    // A child too: its workers use nothing of the service but what they were
    // given, and it asks the runner and the plans only on the event loop.
    (new RepositoryHandler(
         m_accounts, m_plans,
         QDir(Orv::Defines::AppPath::to().data()).filePath(QStringLiteral("cache")),
         [this](const QUuid& plan) { return m_runner.isRunning(plan); }, this))
        ->install(m_registry);
    // A child as well: it works on the catalogs on the event loop only.
    (new ConfigTransferHandler(
         m_accounts, m_plans, [this] { m_scheduling.sync(); }, this))
        ->install(m_registry);
    m_connections.install(m_registry);
    m_accountChanges.install(m_registry);
    m_sync.install(m_registry);
    m_sslStore.install(m_registry);
}

Service::~Service()
{
    shutdown();
}

bool Service::start(QString* error)
{
    const auto& paths = Orv::Defines::AppPath::to();
    qCInfo(lcService).noquote() << "orvd" << Kel::Core::Version::string() << "starting, pid"
                                << QCoreApplication::applicationPid();
    // Signals are taken from the first moment: a HUP sent by a reload that
    // races with the start must not end the service.
    m_signals = new SignalBridge({SIGTERM, SIGINT, SIGHUP}, this);
    connect(m_signals, &SignalBridge::received, this, &Service::onSignal);
    QString logsProblem;
    if (!ensurePrivateFolder(paths.logs(), Strictness::Optional, &logsProblem)) {
        // Service::applyLogging() has already said where the log lines go.
        qCWarning(lcService).noquote() << logsProblem;
    }
    if (!ensurePrivateFolder(paths.run(), Strictness::Required, error) ||
        !ensurePrivateFolder(paths.config(), Strictness::Required, error) ||
        !ensurePrivateFolder(paths.data(), Strictness::Required, error) ||
        !m_lock.acquire(paths.servicePidFile(), error) ||
        !m_server.listen(paths.serviceSocket(), error)) {
        notifySystemd(QStringLiteral("STATUS=Cannot start: ") + *error);
        m_lock.release();
        return false;
    }
    QTimer::singleShot(0, this, &Service::completeStartup);
    return true;
}

void Service::applyLogging()
{
    SettingsWatcher::applyLogging();
    Kel::LogManager* log = Kel::LogManager::instance();
    QString problem;
    const bool toFile =
        log->logLevel() == Kel::LogLevel::Disable || canWriteLog(log->logFilePath(), &problem);
    log->setOutToStream(!toFile);
    if (!toFile)
        std::fprintf(stderr, "orvd: cannot write the log file %s: %s; logging to standard error\n",
                     qPrintable(log->logFilePath()), qPrintable(problem));
}

void Service::completeStartup()
{
    if (m_stopping)
        return;
    QString error;
    if (!openDatabase(&error)) {
        qCCritical(lcService).noquote() << "Cannot open the database:" << error;
        std::fprintf(stderr, "orvd: cannot open the database: %s\n", qPrintable(error));
        notifySystemd(QStringLiteral("STATUS=Cannot open the database: ") + error);
        stop(1);
        return;
    }
    qCInfo(lcService).noquote() << "Edition:"
                                << (SHARED::defines::common::is_standalone() ? "standalone"
                                                                             : "managed");
    // Runs that were going when the service last ended did not finish.
    for (const QUuid& plan : m_history.closeInterrupted(QDateTime::currentDateTime()))
        qCWarning(lcService).noquote()
            << "Plan" << plan.toString()
            << "was running when the service stopped: recorded as interrupted";
    m_scheduling.start();
    if (qEnvironmentVariableIsSet("ORV_TEST_CLOCK_FILE")) {
        // The test clock jumps without the timers knowing.
        auto* poll = new QTimer(this);
        connect(poll, &QTimer::timeout, this, [this] { m_scheduling.checkNow(); });
        poll->start(200);
    }
    m_dispatcher.setReady(true);
    qCInfo(lcService) << "Ready";
    notifySystemd(QStringLiteral("READY=1\nSTATUS=Serving on ") +
                  Orv::Defines::AppPath::to().serviceSocket());
    // Reading both folders now puts problems with them in the log at start-up
    // rather than at the first request. It comes after READY: systemd and the
    // units ordered after this one need not wait for thousands of files, and a
    // request that arrives first reads them itself.
    QTimer::singleShot(0, this, [this] {
        if (!m_stopping)
            qCInfo(lcService).noquote() << m_plans.rows().size() << "plans,"
                                        << m_accounts.records().size() << "storage accounts";
    });
}

bool Service::openDatabase(QString* error)
{
    const QString path = Orv::Defines::AppPath::to().databaseFile();
    if (!Orv::SQL::Database::openForService(path, error))
        return false;
    m_databaseOpen = true;
    qCInfo(lcService).noquote() << "Database" << path << "open, schema version"
                                << Orv::SQL::Database::currentSchemaVersion();
    return true;
}

void Service::closeDatabase()
{
    const QString name = QLatin1String(Orv::SQL::Database::kServiceConnection);
    if (!QSqlDatabase::contains(name))
        return;
    QSqlDatabase::database(name, false).close();
    QSqlDatabase::removeDatabase(name);
    if (m_databaseOpen)
        qCInfo(lcService) << "Database closed";
    m_databaseOpen = false;
}

void Service::onSignal(int signalNumber)
{
    if (signalNumber == SIGHUP) {
        reload();
        return;
    }
    qCInfo(lcService).noquote() << "Stopping on" << signalName(signalNumber);
    stop(0);
}

void Service::reload()
{
    if (m_stopping)
        return;
    notifySystemd(QStringLiteral("RELOADING=1\nSTATUS=Reloading the configuration"));
    // Written to the file that was open until now: after an outside rotation
    // it ends the rotated file, and the next line starts the new one.
    qCInfo(lcService).noquote() << "Reloading on" << signalName(SIGHUP);
    Orv::Defines::Installation::reload();
    DefaultSettings::instance()->reload();
    applyLogging();
    Orv::Common::applyNetworkSettings();
    const Kel::LogManager* log = Kel::LogManager::instance();
    qCInfo(lcService).noquote()
        << QStringLiteral("Configuration read again: edition %1, log file %2 reopened at level %3")
               .arg(SHARED::defines::common::is_standalone() ? QStringLiteral("standalone")
                                                             : QStringLiteral("managed"),
                    log->logFilePath(), Kel::logLevelName(log->logLevel()));
    notifySystemd(QStringLiteral("READY=1\nSTATUS=Serving on ") +
                  Orv::Defines::AppPath::to().serviceSocket());
}

void Service::stop(int exitCode)
{
    if (m_stopping)
        return;
    m_stopping = true;
    notifySystemd(QStringLiteral("STOPPING=1"));
    shutdown();
    qCInfo(lcService).noquote() << "Stopped with status" << exitCode;
    QCoreApplication::exit(exitCode);
}

void Service::shutdown()
{
    m_dispatcher.setReady(false);
    m_server.close();
    m_sync.stop();
    m_runner.stopAll();
    closeDatabase();
    m_lock.release();
}

} // namespace Orv::Service
