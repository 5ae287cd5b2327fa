#include "service/channel/Dispatcher.h"

#include "orvCommon/Communication/Format.h"
#include "service/ServiceLog.h"

#include <exception>

namespace Orv::Service {

namespace Header = Orv::Common::Communication::Commands::Format::Header;

namespace {

QString unexpectedFailure(const std::exception* error)
{
    return error ? QStringLiteral("Internal error: %1").arg(QString::fromLocal8Bit(error->what()))
                 : QStringLiteral("Internal error");
}

} // namespace

void Dispatcher::dispatch(const QJsonObject& message, RequestContext context,
                          const ReplySink& sink) const
{
    context.sessionId = message.value(QLatin1String(Header::SessionId)).toString();
    context.connectionType = message.value(QLatin1String(Header::ConnectionType::key)).toInt();
    context.serviceReady = m_ready;

    const QString type = message.value(QLatin1String(Header::Type::Key)).toString();
    if (type == QLatin1String(Header::Type::Request))
        dispatchNamed(message, context, sink);
    else if (type == QLatin1String(Header::Type::RequestV2))
        dispatchTyped(message, context, sink);
    else if (type == QLatin1String(Header::Type::Notification))
        dispatchNotification(message, context);
    else
        qCWarning(lcRequest).noquote() << "Connection" << context.connectionId
                                       << "sent a message of unknown type" << echoedName(type);
}

void Dispatcher::dispatchNamed(const QJsonObject& message, const RequestContext& context,
                               const ReplySink& sink) const
{
    const QString command = message.value(QLatin1String(Header::Command)).toString();
    const NamedResponder responder(sink, command, message.value(QLatin1String(Header::Id)),
                                   context.sessionId);
    qCDebug(lcRequest).noquote() << "Request" << echoedName(command) << "on connection"
                                 << context.connectionId;

    const QJsonValue params = message.value(QLatin1String(Header::Params));
    if (!params.isObject() && !params.isUndefined() && !params.isNull()) {
        responder.failure(
            QStringLiteral("The parameters of %1 are not an object").arg(echoedName(command)));
        return;
    }
    const HandlerRegistry::AsyncNamedHandler* found = m_registry.named(command);
    if (!found) {
        responder.failure(QStringLiteral("Unknown command '%1'").arg(echoedName(command)));
        return;
    }
    // A copy: the handler may register or replace handlers while it runs.
    const HandlerRegistry::AsyncNamedHandler handler = *found;
    try {
        handler(params.toObject(), context, responder);
    } catch (const std::exception& error) {
        responder.failure(unexpectedFailure(&error));
    } catch (...) {
        responder.failure(unexpectedFailure(nullptr));
    }
}

void Dispatcher::dispatchTyped(const QJsonObject& message, const RequestContext& context,
                               const ReplySink& sink) const
{
    const QString commandText = message.value(QLatin1String(Header::CommandId)).toString();
    const QUuid commandId(commandText);
    const HandlerRegistry::TypedEntry* found = m_registry.typed(commandId);
    const QString name = found ? found->definition->name() : echoedName(commandText);
    const TypedResponder responder(sink, name, message.value(QLatin1String(Header::Id)));
    qCDebug(lcRequest).noquote() << "Typed request" << name << "on connection"
                                 << context.connectionId;

    if (commandId.isNull()) {
        responder.failed(QStringLiteral("The request has no valid command identifier"));
        return;
    }
    if (!found) {
        responder.failed(QStringLiteral("Unknown command identifier %1").arg(commandId.toString()));
        return;
    }
    if (!m_ready) {
        responder.tryLater(QStringLiteral("The service is starting"));
        return;
    }
    const QJsonValue body = message.value(QLatin1String(Header::TypedRequest));
    const QSharedPointer<HandlerRegistry::Request> request = found->definition->createRequest();
    if ((!body.isObject() && !body.isUndefined()) || !request ||
        !request->fromJson(body.toObject())) {
        responder.failed(QStringLiteral("The request of %1 is malformed").arg(name));
        return;
    }
    const HandlerRegistry::AsyncTypedHandler handler = found->handler;
    try {
        handler(*request, context, responder);
    } catch (const std::exception& error) {
        responder.failed(unexpectedFailure(&error));
    } catch (...) {
        responder.failed(unexpectedFailure(nullptr));
    }
}

void Dispatcher::dispatchNotification(const QJsonObject& message,
                                      const RequestContext& context) const
{
    const QJsonObject data = message.value(QLatin1String(Header::Data)).toObject();
    const QString typeText = data.value(QLatin1String(Header::NotificationType)).toString();
    const HandlerRegistry::NotificationHandler* found = m_registry.notification(QUuid(typeText));
    if (!found) {
        qCDebug(lcRequest).noquote() << "No handler for notification" << echoedName(typeText)
                                     << "from connection" << context.connectionId;
        return;
    }
    qCDebug(lcRequest).noquote() << "Notification" << typeText << "from connection"
                                 << context.connectionId;
    const HandlerRegistry::NotificationHandler handler = *found;
    try {
        handler(data.value(QLatin1String(Header::NotificationMessage)).toObject(), context);
    } catch (const std::exception& error) {
        qCWarning(lcRequest).noquote()
            << "Notification" << typeText << "failed:" << unexpectedFailure(&error);
    } catch (...) {
        qCWarning(lcRequest).noquote() << "Notification" << typeText << "failed";
    }
}

} // namespace Orv::Service
