#include "CommandChannel.h"

#include "orvCommon/Communication/Format.h"

#include <QEventLoop>

Q_LOGGING_CATEGORY(lcChannelCli, "CommandLineV2.channel")

namespace Orv::CLI::CommandChannel {

namespace Header = Orv::Common::Communication::Commands::Format::Header;

QJsonDocument namedRequest(const QJsonObject& params)
{
    return QJsonDocument(QJsonObject{{QLatin1String(Header::Params), params}});
}

QJsonObject namedReplyData(ICommand* command)
{
    if (command->isError() || command->isTimeout())
        throw command->errorString();
    const QJsonDocument reply = command->reply();
    if (!command->isComplite() || reply.isNull() || !reply.isObject())
        throw kReplyFormatError;
    if (command->isReplyError())
        throw command->replyErrorString();
    const QJsonValue data = reply.object().value(QLatin1String(Header::Data));
    if (!data.isObject())
        throw kReplyFormatError;
    return data.toObject();
}

void sendNamedStatus(const QString& name, const QJsonObject& params, QObject* context,
                     const std::function<void()>& done,
                     const std::function<void(const QString&)>& failed,
                     const QString& notRegistered)
{
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    if (!manager)
        throw kManagerMissing;
    ICommand* command = manager->commandFactory(name);
    if (!command)
        throw notRegistered;
    command->setRequest(namedRequest(params));
    // Exactly one of the three signals ends the exchange.
    const auto judge = [command, done, failed] {
        command->deleteLater();
        try {
            throwIfOutcomeUnknown(command);
            namedReplyData(command);
        } catch (const QString& message) {
            failed(message);
            return;
        }
        done();
    };
    QObject::connect(command, &ICommand::complite, context, judge);
    QObject::connect(command, &ICommand::error, context, judge);
    QObject::connect(command, &ICommand::timeout, context, judge);
    command->exec();
}

QSharedPointer<TypedCommand::Response> typedResponseBase(TypedCommand* command, QObject* context,
                                                         const std::function<void()>& resend)
{
    switch (command->status()) {
    case TypedCommand::Failed:
        throw command->errorMessage();
    case TypedCommand::TryLater:
        qCWarning(lcChannelCli).noquote() << kRetryWarning;
        QTimer::singleShot(Orv::Common::Communication::retryDelayMs(), context, resend);
        return {};
    case TypedCommand::Done:
        return command->response();
    default:
        throw kInternalError;
    }
}

QJsonObject blockingExchange(const QString& name, const QJsonObject& params, int timeoutMs)
{
    QPointer<Orv::Common::Communication::Manager> manager =
        Orv::Common::Communication::Manager::instance();
    if (!manager)
        throw QStringLiteral("Commnunication manager is 0x00");
    QScopedPointer<ICommand, QScopedPointerDeleteLater> command(manager->commandFactory(name));
    if (!command)
        throw QStringLiteral("Commnunication command don't registrate");
    QEventLoop loop;
    QObject::connect(command.data(), &ICommand::complite, &loop, &QEventLoop::quit);
    QObject::connect(command.data(), &ICommand::error, &loop, &QEventLoop::quit);
    QObject::connect(command.data(), &ICommand::timeout, &loop, &QEventLoop::quit);
    command->setRequest(namedRequest(params));
    if (timeoutMs > 0)
        command->setTimeout(timeoutMs);
    command->exec();
    loop.exec();
    return namedReplyData(command.data());
}

} // namespace Orv::CLI::CommandChannel
