#include "SendTarnLog.h"

#include "orvCommon/Communication/Manager.h"
#include "orvCommon/Communication/V2/DiagnosticLogs.h"

#include <QScopedPointer>

namespace Orv::CLI {

namespace {

using SendLogs = Orv::Common::Communication::V2::Diagnostics::SendLogs;
using TypedCommand = Orv::Common::Communication::V2::Command;

// The upload of a large archive over a slow line takes its time; the service
// reports a stalled one itself.
constexpr int UploadTimeoutMs = 6 * 60 * 60 * 1000;

} // namespace

SendTarnLog::SendTarnLog(const QString& path, const QString& user, const QString& email,
                         const QString& message, QObject* parent)
    : QObject(parent), m_path(path), m_user(user), m_email(email), m_message(message)
{
}

bool SendTarnLog::exec()
{
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    TypedCommand* command = manager ? manager->commandFactoryV2(SendLogs::CommandId) : nullptr;
    if (!command)
        return false;
    auto request = QSharedPointer<SendLogs::Request>::create();
    request->setPath(m_path);
    request->setUser(m_user);
    request->setEmail(m_email);
    request->setMessage(m_message);
    command->setRequest(request);
    command->setTimeout(UploadTimeoutMs);
    connect(command, &TypedCommand::complite, this, &SendTarnLog::onSendLogsResult);
    connect(command, &TypedCommand::error, this, &SendTarnLog::onSendLogsResult);
    connect(command, &TypedCommand::timeout, this, &SendTarnLog::onSendLogsResult);
    command->exec();
    return true;
}

void SendTarnLog::onSendLogsResult()
{
    QScopedPointer<TypedCommand, QScopedPointerDeleteLater> command(
        qobject_cast<TypedCommand*>(sender()));
    const auto response = command->response().dynamicCast<SendLogs::Response>();
    if (command->status() == TypedCommand::Done && response) {
        m_result = 1;
        m_caseId = response->caseId();
    } else {
        m_error = command->errorMessage().isEmpty()
                      ? QStringLiteral("the backup service did not answer")
                      : command->errorMessage();
    }
    emit finished();
}

} // namespace Orv::CLI
