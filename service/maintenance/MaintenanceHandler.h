#pragma once

#include <QJsonObject>
#include <QObject>
#include <QThreadPool>
#include <QUuid>
#include <functional>

namespace Orv::Service {

class AccountCatalog;
class DiagnosticsHandler;
class HandlerRegistry;
class PlanCatalog;
class RunHistory;
class StorageState;
class TrustedStore;
class UpdateHandler;

// The service's dealings with the maker's web services: the diagnostic
// archive and its upload, the update check and download, and the notice that
// a managed client is being uninstalled ("UninstallNotification", sent to the
// address the branding names).
class MaintenanceHandler : public QObject
{
    Q_OBJECT
public:
    using Broadcast = std::function<void(const QUuid& type, const QJsonObject& message)>;

    // Everything given must outlive the requests handled on the event loop.
    MaintenanceHandler(PlanCatalog& plans, AccountCatalog& accounts, StorageState& storage,
                       RunHistory& history, TrustedStore& trusted, Broadcast broadcast,
                       QObject* parent = nullptr);
    ~MaintenanceHandler() override;

    void install(HandlerRegistry& registry);

private:
    // Children of this object.
    DiagnosticsHandler* m_diagnostics;
    UpdateHandler* m_updates;
    QThreadPool m_pool;
};

} // namespace Orv::Service
