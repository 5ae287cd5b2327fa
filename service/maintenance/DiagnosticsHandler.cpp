#include "service/maintenance/DiagnosticsHandler.h"

#include "kelCloud/Config.h"
#include "kelCloud/Types.h"
#include "kelCore/Version.h"
#include "kelNetwork/ComputerName.h"
#include "kelNetwork/GlobalConfig.h"
#include "orvCommon/AppPath.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Database.h"
#include "orvCommon/DefaultSettings.h"
#include "orvCommon/Installation.h"
#include "orvCommon/Rebranding.h"
#include "orvInfo/Plan/PlanResult.h"
#include "orvInfo/StorageConnection.h"
#include "service/ServiceLog.h"
#include "service/accounts/AccountCatalog.h"
#include "service/accounts/AccountSecrets.h"
#include "service/accounts/StorageState.h"
#include "service/channel/HandlerRegistry.h"
#include "service/jobs/RunHistory.h"
#include "service/maintenance/WebRequest.h"
#include "service/plans/PlanCatalog.h"
#include "service/trust/TrustedStore.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QSqlDatabase>
#include <QTextStream>
#include <QUrl>

namespace Orv::Service {

namespace {

namespace SaveLogs = Orv::Common::Communication::Commands::Format::Diagnostics::SaveLogs;
namespace Config = Kel::Cloud::Config;

const QString kArchivePrefix = QStringLiteral("BackupLogsArch_");
const QString kDateFormat = QStringLiteral("yyyy/MM/dd hh:mm:ss");

// One "label : value" line of the summary, labels padded to one column.
QString line(int tabs, const QString& label, const QString& value)
{
    return QString(tabs, QLatin1Char('\t')) + label.leftJustified(19) + QStringLiteral(": ") +
           value + QLatin1Char('\n');
}

bool databaseOpen()
{
    const QString name = QLatin1String(Orv::SQL::Database::kServiceConnection);
    return QSqlDatabase::contains(name) && QSqlDatabase::database(name, false).isOpen();
}

QByteArray agentOptions()
{
    const Kel::Network::GlobalConfig* config = Kel::Network::GlobalConfig::instance();
    return (line(0, QStringLiteral("CA information"), config->caInfoPath()) +
            line(0, QStringLiteral("Trusted certificates"), config->trustedCertificatesPath()) +
            line(0, QStringLiteral("Ignore SSL"),
                 config->ignoreSslErrors() ? QStringLiteral("true") : QStringLiteral("false")) +
            line(0, QStringLiteral("Retry attempts"),
                 QString::number(config->connectionRetryAttempts())) +
            line(0, QStringLiteral("Retry interval"),
                 QString::number(config->connectionRetryInterval())))
        .toUtf8();
}

QByteArray header(const char* name, const QString& value)
{
    // Free text travels percent-encoded: a header is one line of ASCII.
    return QByteArray(name) + ": " + QUrl::toPercentEncoding(value);
}

// Runs on a worker thread: the upload and the support service's answer.
QString upload(const QString& path,
               const Orv::Common::Communication::V2::Diagnostics::SendLogs::Request& request,
               QString* caseId)
{
    QFile archive(path);
    if (!archive.open(QIODevice::ReadOnly))
        return QStringLiteral("cannot read %1: %2").arg(path, archive.errorString());
    const QString url = Orv::Defines::Rebranding::instance()
                            ->value(RebrandingKeys::General::SupportUploadUrl)
                            .toString();
    const Web::Reply reply = Web::upload(
        url,
        {"Content-Type: application/zip", header("X-Orv-User", request.user()),
         header("X-Orv-Email", request.email()), header("X-Orv-Message", request.message()),
         header("X-Orv-Product-Id", Orv::Defines::Installation::current().productId()),
         header("X-Orv-Edition", SHARED::defines::common::is_tarn() ? QStringLiteral("managed")
                                                                    : QStringLiteral("standalone")),
         header("X-Orv-Version", Kel::Core::Version::string()),
         header("X-Orv-Computer", Kel::Network::ComputerName::name())},
        &archive);
    if (!reply.ok())
        return reply.failure(QStringLiteral("the logs could not be sent to %1").arg(url));
    const QJsonValue id =
        QJsonDocument::fromJson(reply.body).object().value(QStringLiteral("caseId"));
    *caseId = id.isDouble() ? QString::number(id.toVariant().toLongLong()) : id.toString();
    if (caseId->isEmpty())
        return QStringLiteral("the support service at %1 gave no case id").arg(url);
    return QString();
}

} // namespace

DiagnosticsHandler::DiagnosticsHandler(PlanCatalog& plans, AccountCatalog& accounts,
                                       StorageState& storage, RunHistory& history,
                                       TrustedStore& trusted, QObject* parent)
    : QObject(parent), m_plans(plans), m_accounts(accounts), m_storage(storage), m_history(history),
      m_trusted(trusted), m_temporaryFolder(Orv::Defines::AppPath::to().data())
{
    // Archives are written one at a time: each reads every log in full.
    m_pool.setMaxThreadCount(1);
    m_pool.setExpiryTimeout(0);
}

DiagnosticsHandler::~DiagnosticsHandler()
{
    m_pool.waitForDone();
}

void DiagnosticsHandler::install(HandlerRegistry& registry)
{
    registry.addNamedAsync(QLatin1String(SaveLogs::Name),
                           [this](const QJsonObject& params, const RequestContext&,
                                  const NamedResponder& responder) { save(params, responder); });
    registry.addTypedAsync<SendLogs>(
        [this](const SendLogs::Request& request, const RequestContext&,
               const TypedResponder& responder) { send(request, responder); });
}

void DiagnosticsHandler::save(const QJsonObject& params, const NamedResponder& responder)
{
    QString path = params.value(QLatin1String(SaveLogs::Request::Path)).toString();
    QStringList problems;
    const bool temporary = path.isEmpty();
    if (temporary)
        path = temporaryArchive(&problems);
    if (QFileInfo(path).isRelative()) {
        responder.failure(QStringLiteral("The archive path must be absolute: %1").arg(path));
        return;
    }
    DiagnosticContent content =
        collect(params.value(QLatin1String(SaveLogs::Request::User)).toString(),
                params.value(QLatin1String(SaveLogs::Request::Message)).toString());
    content.problems = problems + content.problems;
    qCInfo(lcService).noquote() << "Writing the diagnostic archive" << path;
    m_pool.start([this, path, content, temporary, responder]() mutable {
        QStringList problems = content.problems;
        const QString failure = DiagnosticBundle::write(path, content, &problems);
        QMetaObject::invokeMethod(
            this,
            [this, path, problems, failure, temporary, responder] {
                if (!failure.isEmpty()) {
                    qCWarning(lcService).noquote() << "Diagnostic archive not written:" << failure;
                    responder.failure(failure);
                    return;
                }
                m_archives.insert(path);
                if (temporary)
                    m_temporary.insert(path);
                responder.success({{QLatin1String(SaveLogs::Reply::Path), path},
                                   {QLatin1String(SaveLogs::Reply::Problems),
                                    QJsonArray::fromStringList(problems)}});
            },
            Qt::QueuedConnection);
    });
}

void DiagnosticsHandler::send(const SendLogs::Request& request, const TypedResponder& responder)
{
    const QString path = request.path();
    if (!m_archives.contains(path)) {
        responder.failed(
            QStringLiteral("%1 is not a diagnostic archive of this service").arg(path));
        return;
    }
    qCInfo(lcService).noquote() << "Sending the diagnostic archive" << path;
    m_pool.start([this, path, request, responder]() mutable {
        QString caseId;
        const QString failure = upload(path, request, &caseId);
        QMetaObject::invokeMethod(
            this,
            [this, path, caseId, failure, responder] {
                if (m_temporary.remove(path)) {
                    m_archives.remove(path);
                    QFile::remove(path);
                }
                if (!failure.isEmpty()) {
                    qCWarning(lcService).noquote() << "Diagnostic archive not sent:" << failure;
                    responder.failed(failure);
                    return;
                }
                qCInfo(lcService).noquote() << "Diagnostic archive sent: support case" << caseId;
                SendLogs::Response response;
                response.setCaseId(caseId);
                responder.done(response);
            },
            Qt::QueuedConnection);
    });
}

QString DiagnosticsHandler::temporaryArchive(QStringList* problems)
{
    const QDir folder(m_temporaryFolder);
    const QStringList leftovers =
        folder.entryList({kArchivePrefix + QStringLiteral("*.zip")}, QDir::Files);
    for (const QString& name : leftovers) {
        const QString path = folder.filePath(name);
        if (m_temporary.contains(path))
            continue;
        if (!QFile::remove(path))
            problems->append(QStringLiteral("Please remove old logs manually on path:") + path);
    }
    return folder.filePath(kArchivePrefix +
                           QUuid::createUuid().toString(QUuid::WithoutBraces).left(8) +
                           QStringLiteral(".zip"));
}

DiagnosticContent DiagnosticsHandler::collect(const QString& user, const QString& message)
{
    const auto& paths = Orv::Defines::AppPath::to();
    DiagnosticContent content;
    content.summary = summary(user, message);
    addAccounts(&content);
    addPlans(&content);
    content.certificates = m_trusted.certificates();
    content.logsFolder = SHARED::defines::common::logPath();
    content.listedFolders = QStringList{paths.root(),  paths.config(), paths.accounts(),
                                        paths.plans(), paths.logs(),   paths.data()};
    content.listedFolders.removeAll(QString());
    content.listedFolders.removeDuplicates();
    content.settingsFiles = QStringList{paths.installationFile(), paths.settingsFile()};
    content.agentOptions = agentOptions();
    return content;
}

void DiagnosticsHandler::addAccounts(DiagnosticContent* content)
{
    const QJsonArray records = m_accounts.records();
    for (const QJsonValue& value : records) {
        // Through the record class: only the members it knows are written.
        Orv::Info::Storage::Connection account =
            Orv::Info::Storage::Connection::fromRecord(value.toObject());
        account.setDetailParams(AccountSecrets::masked(account.detailParams()));
        content->entries.append(
            {QStringLiteral("accounts/%1.json").arg(account.id().toString(QUuid::WithoutBraces)),
             QJsonDocument(account.toRecord()).toJson(QJsonDocument::Indented)});
    }
}

void DiagnosticsHandler::addPlans(DiagnosticContent* content)
{
    const QJsonArray rows = m_plans.rows();
    for (const QJsonValue& value : rows) {
        const QUuid id(value.toObject().value(QStringLiteral("ID")).toString());
        QString error;
        const QSharedPointer<Orv::Info::Plan::Base> plan = m_plans.load(id, &error);
        const QString xml =
            plan ? plan->toXml(Orv::Info::Plan::Base::SecretForm::Masked, &error) : QString();
        if (xml.isEmpty()) {
            content->problems.append(
                QStringLiteral("can't create plan file in temp directory! (%1: %2)")
                    .arg(id.toString(), error));
            continue;
        }
        content->entries.append(
            {QStringLiteral("plans/%1.xml").arg(id.toString(QUuid::WithoutBraces)), xml.toUtf8()});
    }
}

QByteArray DiagnosticsHandler::summary(const QString& user, const QString& message)
{
    QString text;
    QTextStream out(&text);
    const DefaultSettings* settings = DefaultSettings::instance();
    out << "Product information\n"
        << line(1, QStringLiteral("Build Version"), Kel::Core::Version::string())
        << line(1, QStringLiteral("Product ID"), Orv::Defines::Installation::current().productId())
        << line(1, QStringLiteral("Ignore SSL"), settings->getIgnoreSSL())
        << line(1, QStringLiteral("Symlinks backup"), settings->getSymlinksBackupMode())
        << line(1, QStringLiteral("Log message"), message)
        << line(1, QStringLiteral("Log user"), user) << "\nPlans\n";
    const bool history = databaseOpen();
    if (!history)
        out << "\tProblem with database connection\n";
    for (const QJsonValue& value : m_plans.rows()) {
        const QJsonObject row = value.toObject();
        const QUuid id(row.value(QStringLiteral("ID")).toString());
        out << "\t" << row.value(QStringLiteral("Name")).toString() << " " << id.toString() << "\n";
        if (!history)
            continue;
        const std::optional<RunRecord> last = m_history.last(id);
        out << line(2, QStringLiteral("Last result"),
                    last ? Orv::Info::Plan::PlanResult(last->result).displayName()
                         : Orv::Info::Plan::PlanResult().displayName());
        if (last && last->finished.isValid())
            out << line(2, QStringLiteral("Finished UTC"),
                        last->finished.toUTC().toString(kDateFormat));
    }
    out << "\nAccounts\n";
    for (const QJsonValue& value : m_accounts.records()) {
        const auto account = Orv::Info::Storage::Connection::fromRecord(value.toObject());
        const QJsonObject params = account.detailParams();
        const StorageState::Entry state = m_storage.entry(account.id());
        out << "\t" << account.displayName() << "\n"
            << line(2, QStringLiteral("Destination ID"), account.id().toString())
            << line(2, QStringLiteral("Cloud Type"),
                    Kel::Cloud::typeName(static_cast<Kel::Cloud::Type>(account.type())))
            << line(2, QStringLiteral("Last Sync Date UTC"),
                    state.synced.isValid() ? state.synced.toUTC().toString(kDateFormat)
                                           : QStringLiteral("never"))
            << line(2, QStringLiteral("Container"),
                    params.value(QLatin1String(Config::Container)).toString())
            << line(2, QStringLiteral("Folders path"), account.path())
            << line(2, QStringLiteral("Backup size"), QString::number(state.spaceUsed))
            << line(2, QStringLiteral("Prefix"), account.prefix())
            << line(2, QStringLiteral("Use SSL"),
                    params.value(QLatin1String(Config::UseSsl)).toString() == QLatin1String("true")
                        ? QStringLiteral("yes")
                        : QStringLiteral("no"));
    }
    out.flush();
    return text.toUtf8();
}

} // namespace Orv::Service
