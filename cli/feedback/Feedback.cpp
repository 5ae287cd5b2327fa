#include "Feedback.h"

#include "CommandChannel.h"
#include "Console.h"
#include "SendTarnLog.h"
#include "orvCommon/Communication/Format.h"
#include "orvCommon/Installation.h"
#include "orvCommon/Rebranding.h"

#include <QDateTime>
#include <QDir>
#include <QEventLoop>
#include <QFileInfo>
#include <QJsonArray>

namespace Orv::CLI::Feedback {

namespace {

namespace SaveLogs = Orv::Common::Communication::Commands::Format::Diagnostics::SaveLogs;

// The service reads every log in full; a large set takes a while.
constexpr int ArchiveTimeoutMs = 60 * 60 * 1000;

QString archiveName()
{
    return QStringLiteral("Logs_") + QDateTime::currentDateTime().toString(Qt::ISODate) +
           QStringLiteral(".zip");
}

// Has the service write the archive at path (a temporary one when empty) and
// returns where it is; throws the reason.
QString writeArchive(const QString& path, const QString& user, const QString& message)
{
    const QJsonObject data =
        CommandChannel::blockingExchange(QLatin1String(SaveLogs::Name),
                                         {{QLatin1String(SaveLogs::Request::Path), path},
                                          {QLatin1String(SaveLogs::Request::User), user},
                                          {QLatin1String(SaveLogs::Request::Message), message}},
                                         ArchiveTimeoutMs);
    for (const QJsonValue& problem : data.value(QLatin1String(SaveLogs::Reply::Problems)).toArray())
        print(problem.toString() + QStringLiteral("\n"));
    return data.value(QLatin1String(SaveLogs::Reply::Path)).toString();
}

// Runs the upload through the service and waits for its end.
bool upload(SendTarnLog& request)
{
    if (!request.exec()) {
        print(QStringLiteral("Cannot create send log command.\n"));
        return false;
    }
    QEventLoop loop;
    QObject::connect(&request, &SendTarnLog::finished, &loop, &QEventLoop::quit);
    loop.exec();
    return true;
}

} // namespace

bool saveLog(QString& path)
{
    if (path.startsWith(QLatin1Char('~')))
        path.replace(0, 1, qEnvironmentVariable("HOME"));
    if (!path.endsWith(QLatin1Char('/')))
        path += QLatin1Char('/');
    const QFileInfo archive(path + archiveName());
    if (archive.exists()) {
        print(QStringLiteral("Path are already exist\n"));
        return false;
    }
    const QString folder = archive.absolutePath();
    if (!QDir().mkpath(folder)) {
        print(QStringLiteral("Can't create path: ") + folder + QStringLiteral("\n"));
        return false;
    }
    try {
        const QString saved =
            writeArchive(archive.absoluteFilePath(), qEnvironmentVariable("USER"), QString());
        print(QStringLiteral("Diagnostic logs are saved to ") + saved + QStringLiteral("\n"));
        return true;
    } catch (const QString& message) {
        print(message + QStringLiteral("\n"));
        return false;
    }
}

bool sendLog(const QString& user, const QString& email, const QString& message, bool local)
{
    QString archive;
    try {
        const QString path = local ? QDir::current().absoluteFilePath(archiveName()) : QString();
        if (local && QFileInfo::exists(path)) {
            print(QStringLiteral("Path are already exist\n"));
            return false;
        }
        archive = writeArchive(path, user, message);
    } catch (const QString& reason) {
        print(reason + QStringLiteral("\n"));
        return false;
    }
    if (local) {
        const QString support = Orv::Defines::Rebranding::instance()
                                    ->value(RebrandingKeys::General::SupportEmail)
                                    .toString();
        print(QStringLiteral("Diagnostic logs are saved to ") + archive +
              (support.isEmpty() ? QStringLiteral(", please send the file manually\n")
                                 : QStringLiteral(", please send the file to ") + support +
                                       QStringLiteral(" manually\n")));
    }
    print(QStringLiteral("Sending logs to server...\n"));
    return SHARED::defines::common::is_tarn() ? tarnSendLog(user, email, message, archive)
                                              : standaloneSendLog(user, email, message, archive);
}

bool standaloneSendLog(const QString& user, const QString& email, const QString& message,
                       const QString& archive)
{
    SendTarnLog request(archive, user, email, message);
    if (!upload(request))
        return false;
    if (request.sendLogResult() != 1) {
        print(QStringLiteral("Failed to send logs to server.\n") + QStringLiteral("Error buf:") +
              request.errorString() + QStringLiteral("\n"));
        return false;
    }
    print(QStringLiteral("Report result: Success\n") + QStringLiteral("Case ID:") +
          request.supportCaseId() + QStringLiteral("\n"));
    return true;
}

bool tarnSendLog(const QString& user, const QString& email, const QString& message,
                 const QString& archive)
{
    SendTarnLog request(archive, user, email, message);
    if (!upload(request))
        return false;
    if (request.sendLogResult() != 1) {
        qCWarning(lcChannelCli).noquote() << "Logs not sent:" << request.errorString();
        print(QStringLiteral("Failed to send logs to server.\n"));
        return false;
    }
    print(QStringLiteral("Report result: Success\n") + QStringLiteral("Support Case ID : ") +
          request.supportCaseId() + QStringLiteral("\n"));
    return true;
}

} // namespace Orv::CLI::Feedback
