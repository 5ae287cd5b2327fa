#include "service/Service.h"

#include "kelCore/Version.h"
#include "kelNetwork/Ssl/PeerCertificates.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Database.h"
#include "orvCommon/Installation.h"
#include "service/ServiceLog.h"
#include "service/SignalBridge.h"
#include "service/StorageScan.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QSqlDatabase>
#include <QTimer>
#include <csignal>
#include <cstdio>

namespace Orv::Service {

namespace {

const char* signalName(int signalNumber)
{
    switch (signalNumber) {
    case SIGTERM:
        return "SIGTERM";
    case SIGINT:
        return "SIGINT";
    default:
        return "a signal";
    }
}

bool ensurePrivateFolder(const QString& path, QString* error)
{
    if (!QDir().mkpath(path)) {
        *error = QStringLiteral("cannot create the folder %1").arg(path);
        return false;
    }
    if (!QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner |
                                         QFileDevice::ExeOwner)) {
        *error = QStringLiteral("cannot make the folder %1 private").arg(path);
        return false;
    }
    return true;
}

} // namespace

Service::Service(QObject* parent)
    : QObject(parent), m_plans(Orv::Defines::AppPath::to().plans()),
      m_accounts(Orv::Defines::AppPath::to().accounts()),
      m_trustedStore(Orv::Defines::AppPath::to().trustedCertificatesFile()), m_planList(m_plans),
      m_sync(m_accounts, m_storageState, &StorageScan::run),
      m_connections(m_accounts, m_storageState, m_sync),
      m_accountChanges(m_accounts, m_storageState, m_sync),
      m_sslStore(m_trustedStore,
                 [](const QString& endpoint, QString* error) {
                     return Kel::Network::Ssl::fetchPeerCertificates(endpoint, error);
                 },
                 [this](const QUuid& type, const QJsonObject& message) {
                     m_server.broadcast(type, message);
                 }),
      m_dispatcher(m_registry), m_server(m_dispatcher)
{
    m_planList.install(m_registry);
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
    if (!ensurePrivateFolder(paths.run(), error) ||
        !m_lock.acquire(paths.servicePidFile(), error) ||
        !m_server.listen(paths.serviceSocket(), error)) {
        m_lock.release();
        return false;
    }
    m_signals = new SignalBridge({SIGTERM, SIGINT}, this);
    connect(m_signals, &SignalBridge::received, this, &Service::onSignal);
    QTimer::singleShot(0, this, &Service::completeStartup);
    return true;
}

void Service::completeStartup()
{
    if (m_stopping)
        return;
    QString error;
    if (!openDatabase(&error)) {
        qCCritical(lcService).noquote() << "Cannot open the database:" << error;
        std::fprintf(stderr, "orvd: cannot open the database: %s\n", qPrintable(error));
        stop(1);
        return;
    }
    // Reading the installation and both folders now puts problems with them
    // in the log at start-up rather than at the first request.
    qCInfo(lcService).noquote() << "Edition:"
                                << (SHARED::defines::common::is_standalone() ? "standalone"
                                                                             : "managed");
    qCInfo(lcService).noquote() << m_plans.rows().size() << "plans," << m_accounts.records().size()
                                << "storage accounts";
    m_dispatcher.setReady(true);
    qCInfo(lcService) << "Ready";
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
    qCInfo(lcService).noquote() << "Stopping on" << signalName(signalNumber);
    stop(0);
}

void Service::stop(int exitCode)
{
    if (m_stopping)
        return;
    m_stopping = true;
    shutdown();
    qCInfo(lcService).noquote() << "Stopped with status" << exitCode;
    QCoreApplication::exit(exitCode);
}

void Service::shutdown()
{
    m_dispatcher.setReady(false);
    m_server.close();
    m_sync.stop();
    closeDatabase();
    m_lock.release();
}

} // namespace Orv::Service
