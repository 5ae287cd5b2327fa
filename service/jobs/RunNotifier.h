#pragma once

#include "orvInfo/Plan/Notification.h"
#include "orvInfo/Plan/PlanResult.h"
#include "service/jobs/RunHistory.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QThreadPool>
#include <atomic>
#include <memory>
#include <optional>

namespace Orv::Info::Plan {
class Base;
}

namespace Orv::Service {

class JobRunner;
class PlanCatalog;

// The SMTP relay the service hands its mails to, from the instance's
// config/smtp.conf: one "key=value" a line, "#" starts a comment.
//
//   host      the relay (required)
//   port      default 25, 465 with tls=implicit
//   tls       none | starttls (default) | implicit
//   user      for authentication; none when empty
//   password  sealed with the instance's key; a plain one is sealed in place
//             the first time the service reads it
//   from      the sender address (required)
//   timeout   seconds for a whole delivery, default 60
struct SmtpRelay
{
    enum class Tls
    {
        None,
        StartTls,
        Implicit,
    };

    QString host;
    int port = 25;
    Tls tls = Tls::StartTls;
    QString user;
    QString password;
    QString sender;
    int timeoutSeconds = 60;

    // The relay of the file; nothing when it cannot be used, with the reason
    // in *error (empty when the file does not exist: mail is not set up).
    static std::optional<SmtpRelay> load(const QString& file, QString* error);
    // config/smtp.conf of the current instance.
    static QString defaultFile();
    // "host:port", for log lines.
    QString where() const;
};

// E-mails the outcome of a plan's run to the address of the settings store's
// notification setting, as the plan's notification settings ask:
//  - on: every run;
//  - error-only: runs that failed (Failed, Interrupted). A run with warnings
//    did its job, and a stopped run was stopped by someone or by the plan's
//    own time limit; neither is mailed;
//  - off: never.
// Without an address or a relay nothing is sent; that is logged once, not at
// every run, until it changes.
//
// Mails go out one after another on a thread of their own, each within the
// relay's timeout; the caller never waits. A failed delivery is logged with
// the reason and not retried: the run history keeps the outcome anyway.
class RunNotifier : public QObject
{
    Q_OBJECT
public:
    explicit RunNotifier(QObject* parent = nullptr);
    // Abandons the mails not yet delivered.
    ~RunNotifier() override;

    // Mails the runs that the runner ends. The catalog and the history must
    // outlive the connection.
    void watch(JobRunner& runner, PlanCatalog& plans, RunHistory& history);

    // Decides on a finished run and, when it is to be mailed, queues the mail;
    // whether one was queued.
    bool notify(const Orv::Info::Plan::Base& plan, const RunRecord& record,
                const QString& computerName);
    // Waits (at most msecs) until the queued mails went out or failed.
    bool waitForDone(int msecs);

    static bool isWanted(Orv::Info::Plan::Notification::Type type,
                         Orv::Info::Plan::PlanResult result);
    // The plan's subject with its variables replaced, or the service's own.
    static QString subject(const Orv::Info::Plan::Base& plan, const RunRecord& record,
                           const QString& computerName);
    static QString body(const Orv::Info::Plan::Base& plan, const RunRecord& record,
                        const QString& computerName);
    // The whole message as it goes to the relay: headers free of line breaks
    // that did not come from here, non-ASCII subjects as encoded words, the
    // text in base64.
    static QByteArray message(const QString& sender, const QStringList& recipients,
                              const QString& subject, const QString& body,
                              const QString& computerName);

private:
    QStringList recipients();
    std::optional<SmtpRelay> relay();
    void send(const SmtpRelay& relay, const QStringList& recipients, const QByteArray& message,
              const QString& planName);

    QThreadPool m_pool;
    std::shared_ptr<std::atomic_bool> m_abandon = std::make_shared<std::atomic_bool>(false);
    QString m_reportedProblem;
};

} // namespace Orv::Service
