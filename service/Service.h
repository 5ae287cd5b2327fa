#pragma once

#include "service/InstanceLock.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/RepositorySync.h"
#include "service/accounts/StorageAccountHandler.h"
#include "service/accounts/StorageConnectionHandler.h"
#include "service/accounts/StorageState.h"
#include "service/channel/Dispatcher.h"
#include "service/channel/HandlerRegistry.h"
#include "service/channel/SocketServer.h"
#include "service/jobs/JobRunner.h"
#include "service/jobs/RunHistory.h"
#include "service/plans/PlanCatalog.h"
#include "service/plans/PlanEditHandler.h"
#include "service/plans/PlanListHandler.h"
#include "service/plans/PlanScheduling.h"
#include "service/trust/SslStoreHandler.h"
#include "service/trust/TrustedStore.h"

#include <QObject>

namespace Orv::Service {

class SignalBridge;

// The background service of one instance. Start-up listens first, so clients
// can connect at once, and then opens the database and loads the
// configuration; typed commands are asked to try later until that is done.
// SIGTERM and SIGINT stop it cleanly: socket and pid file removed, database
// closed, exit status 0. SIGHUP reads the settings and the installation record
// again and reopens the log file, so that an outside log rotation needs no
// copy. Under systemd (Type=notify) it says when it is ready, reloading and
// stopping; elsewhere those notices go nowhere.
class Service : public QObject
{
    Q_OBJECT
public:
    explicit Service(QObject* parent = nullptr);
    ~Service() override;

    // Takes the instance and starts listening. The rest of start-up runs on
    // the event loop; if it fails, the loop ends with a non-zero status.
    bool start(QString* error);

    // Opens the log file the settings ask for. When no file can be written
    // the reason goes to standard error (the journal under systemd), and so
    // do the log lines from then on, instead of nowhere.
    static void applyLogging();

    HandlerRegistry& handlers() { return m_registry; }
    SocketServer& server() { return m_server; }

private:
    void completeStartup();
    bool openDatabase(QString* error);
    void closeDatabase();
    void onSignal(int signalNumber);
    void reload();
    void stop(int exitCode);
    void shutdown();

    // The handlers and what they read come first: they outlive the server.
    PlanCatalog m_plans;
    AccountCatalog m_accounts;
    StorageState m_storageState;
    TrustedStore m_trustedStore;
    RunHistory m_history;
    JobRunner m_runner;
    PlanListHandler m_planList;
    PlanEditHandler m_planEdit;
    PlanScheduling m_scheduling;
    RepositorySync m_sync;
    StorageConnectionHandler m_connections;
    StorageAccountHandler m_accountChanges;
    SslStoreHandler m_sslStore;
    HandlerRegistry m_registry;
    Dispatcher m_dispatcher;
    SocketServer m_server;
    InstanceLock m_lock;
    SignalBridge* m_signals = nullptr;
    bool m_databaseOpen = false;
    bool m_stopping = false;
};

} // namespace Orv::Service
