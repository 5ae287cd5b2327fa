#pragma once

#include <QObject>
#include <QString>

namespace Orv::CLI {

// The upload of a diagnostic archive the service wrote, through the service
// (the typed SendLogs command): the service holds the archive and speaks to
// the support service. exec() sends; finished() follows once, with the result.
class SendTarnLog : public QObject
{
    Q_OBJECT
public:
    SendTarnLog(const QString& path, const QString& user, const QString& email,
                const QString& message, QObject* parent = nullptr);

    // False when the request cannot be made (no manager, command unknown).
    bool exec();
    // 1 when the archive was sent.
    int sendLogResult() const { return m_result; }
    QString supportCaseId() const { return m_caseId; }
    // Why it was not sent.
    QString errorString() const { return m_error; }

signals:
    void finished();

private slots:
    void onSendLogsResult();

private:
    QString m_path;
    QString m_user;
    QString m_email;
    QString m_message;
    int m_result = 0;
    QString m_caseId;
    QString m_error;
};

} // namespace Orv::CLI
