#include "service/config/ConfigTransferHandler.h"

#include "kelNetwork/ComputerName.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Installation.h"
#include "orvCommon/TarnSettings.h"
#include "service/channel/HandlerRegistry.h"
#include "service/config/ConfigExport.h"
#include "service/config/ConfigImport.h"

#include <QDir>
#include <QJsonArray>
#include <utility>

namespace Orv::Service {

namespace {

namespace Config = Orv::Common::Communication::Commands::Format::Config;

// The prefix new backups of this machine go under: its name, or in the
// managed variant the prefix its service assigned.
QString machinePrefix()
{
    if (SHARED::defines::common::is_tarn()) {
        const Orv::Defines::Tarn::TarnSettings settings(Orv::Defines::AppPath::toV2());
        const QString assigned = settings.get().prefix;
        if (!assigned.isEmpty())
            return assigned;
    }
    return Kel::Network::ComputerName::name();
}

// The service runs elsewhere than the command line: a relative path would
// name a different file for each.
QString absolutePath(const QString& path, QString* error)
{
    if (path.isEmpty() || QDir::isRelativePath(path)) {
        *error = QStringLiteral("The configuration file's path must be absolute: \"%1\"").arg(path);
        return {};
    }
    return QDir::cleanPath(path);
}

} // namespace

ConfigTransferHandler::ConfigTransferHandler(AccountCatalog& accounts, PlanCatalog& plans,
                                             std::function<void()> plansChanged, QObject* parent)
    : QObject(parent), m_accounts(accounts), m_plans(plans), m_plansChanged(std::move(plansChanged))
{
}

void ConfigTransferHandler::install(HandlerRegistry& registry)
{
    registry.addNamed(QLatin1String(Config::Export::Name), [this](const QJsonObject& params,
                                                                  const RequestContext&) {
        namespace Request = Config::Export::Request;
        namespace Reply = Config::Export::Reply;
        QString error;
        const QString path =
            absolutePath(params.value(QLatin1String(Request::Path)).toString(), &error);
        ConfigExport::Options options;
        options.passphrase = params.value(QLatin1String(Request::Passphrase)).toString();
        options.removeSecrets = params.value(QLatin1String(Request::RemovePasswords)).toBool();
        for (const QJsonValue& plan : params.value(QLatin1String(Request::ExcludedPlans)).toArray())
            options.excludedPlans.insert(QUuid(plan.toString()));
        if (!path.isEmpty())
            error = ConfigExport(m_accounts, m_plans).write(path, options);
        return NamedOutcome::success(
            {{QLatin1String(Reply::Error), error}, {QLatin1String(Reply::File), path}});
    });

    registry.addNamed(QLatin1String(Config::Import::Name), [this](const QJsonObject& params,
                                                                  const RequestContext&) {
        namespace Request = Config::Import::Request;
        QString error;
        const QString path =
            absolutePath(params.value(QLatin1String(Request::FilePath)).toString(), &error);
        if (path.isEmpty()) {
            ConfigImport::Report refused;
            refused.message = error;
            return NamedOutcome::success(refused.toReply());
        }
        const QString prefix = params.value(QLatin1String(Request::ReplaceBackupPrefix)).toBool()
                                   ? machinePrefix()
                                   : QString();
        const ConfigImport::Report report =
            ConfigImport(m_accounts, m_plans)
                .run(path, params.value(QLatin1String(Request::Passphrase)).toString(), prefix);
        if (report.plans.size > report.plans.failures.size() && m_plansChanged)
            m_plansChanged();
        return NamedOutcome::success(report.toReply());
    });
}

} // namespace Orv::Service
