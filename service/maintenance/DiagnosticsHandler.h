#pragma once

#include "orvCommon/Communication/V2/DiagnosticLogs.h"
#include "service/channel/NamedResponder.h"
#include "service/channel/TypedResponder.h"
#include "service/maintenance/DiagnosticBundle.h"

#include <QJsonObject>
#include <QObject>
#include <QSet>
#include <QThreadPool>

namespace Orv::Service {

class AccountCatalog;
class HandlerRegistry;
class PlanCatalog;
class RunHistory;
class StorageState;
class TrustedStore;

// Writes the diagnostic archive ("SaveDiagnosticLogs") and uploads it to the
// maker's support service (the typed SendLogs). The service writes it because
// it alone reads what the archive shows with its secrets hidden: the account
// and plan files (readable by the service's owner only, their secrets sealed
// with the instance's key), the run history and its own logs. What it needs
// from the catalogues is gathered on the event loop; the archive is written
// and sent on a worker thread.
//
// Only archives this service wrote are ever uploaded: a client cannot make it
// send any other file.
class DiagnosticsHandler : public QObject
{
    Q_OBJECT
public:
    // Everything given must outlive the requests handled on the event loop;
    // the workers never use it.
    DiagnosticsHandler(PlanCatalog& plans, AccountCatalog& accounts, StorageState& storage,
                       RunHistory& history, TrustedStore& trusted, QObject* parent = nullptr);
    // Waits for the work under way.
    ~DiagnosticsHandler() override;

    void install(HandlerRegistry& registry);

private:
    using SendLogs = Orv::Common::Communication::V2::Diagnostics::SendLogs;

    void save(const QJsonObject& params, const NamedResponder& responder);
    void send(const SendLogs::Request& request, const TypedResponder& responder);
    DiagnosticContent collect(const QString& user, const QString& message);
    QByteArray summary(const QString& user, const QString& message);
    void addPlans(DiagnosticContent* content);
    void addAccounts(DiagnosticContent* content);
    // A fresh temporary archive path; leftovers of earlier runs are removed.
    QString temporaryArchive(QStringList* problems);

    PlanCatalog& m_plans;
    AccountCatalog& m_accounts;
    StorageState& m_storage;
    RunHistory& m_history;
    TrustedStore& m_trusted;
    QString m_temporaryFolder;
    // The archives this service wrote; those it made for sending alone are
    // removed once sent.
    QSet<QString> m_archives;
    QSet<QString> m_temporary;
    QThreadPool m_pool;
};

} // namespace Orv::Service
