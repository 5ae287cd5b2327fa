#include "service/maintenance/MaintenanceHandler.h"

#include "kelCore/Version.h"
#include "kelNetwork/ComputerName.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Installation.h"
#include "orvCommon/Rebranding.h"
#include "service/ServiceLog.h"
#include "service/channel/HandlerRegistry.h"
#include "service/maintenance/DiagnosticsHandler.h"
#include "service/maintenance/UpdateHandler.h"
#include "service/maintenance/WebRequest.h"

#include <QDir>
#include <QJsonDocument>

namespace Orv::Service {

namespace {

namespace Uninstall = Orv::Common::Communication::Commands::Format::System::UninstallNotification;

constexpr int NoticeTimeoutMs = 20000;

// Runs on a worker thread; empty or the reason.
QString sendUninstallNotice()
{
    const QString url = Orv::Defines::Rebranding::instance()
                            ->value(RebrandingKeys::General::UninstallNotificationUrl)
                            .toString();
    const QJsonObject notice{
        {QStringLiteral("event"), QStringLiteral("uninstall")},
        {QStringLiteral("productId"), Orv::Defines::Installation::current().productId()},
        {QStringLiteral("computerName"), Kel::Network::ComputerName::name()},
        {QStringLiteral("version"), Kel::Core::Version::string()}};
    const Web::Reply reply =
        Web::send("POST", url, {"Content-Type: application/json"},
                  QJsonDocument(notice).toJson(QJsonDocument::Compact), NoticeTimeoutMs);
    return reply.ok()
               ? QString()
               : reply.failure(QStringLiteral("the uninstall notification to %1 failed").arg(url));
}

} // namespace

MaintenanceHandler::MaintenanceHandler(PlanCatalog& plans, AccountCatalog& accounts,
                                       StorageState& storage, RunHistory& history,
                                       TrustedStore& trusted, Broadcast broadcast, QObject* parent)
    : QObject(parent),
      m_diagnostics(new DiagnosticsHandler(plans, accounts, storage, history, trusted, this)),
      m_updates(new UpdateHandler(
          QDir(Orv::Defines::AppPath::to().data()).filePath(QStringLiteral("updates")),
          std::move(broadcast), this))
{
    m_pool.setExpiryTimeout(0);
}

MaintenanceHandler::~MaintenanceHandler()
{
    m_pool.waitForDone();
}

void MaintenanceHandler::install(HandlerRegistry& registry)
{
    m_diagnostics->install(registry);
    m_updates->install(registry);
    registry.addNamedAsync(
        QLatin1String(Uninstall::Name),
        [this](const QJsonObject&, const RequestContext&, const NamedResponder& responder) {
            m_pool.start([this, responder] {
                const QString failure = sendUninstallNotice();
                QMetaObject::invokeMethod(
                    this,
                    [failure, responder] {
                        if (failure.isEmpty()) {
                            qCInfo(lcService) << "Uninstall notification sent";
                            responder.success();
                            return;
                        }
                        qCWarning(lcService).noquote() << failure;
                        responder.failure(failure);
                    },
                    Qt::QueuedConnection);
            });
        });
}

} // namespace Orv::Service
