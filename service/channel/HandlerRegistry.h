#pragma once

#include "orvCommon/Communication/V2Command.h"
#include "service/channel/NamedOutcome.h"
#include "service/channel/NamedResponder.h"
#include "service/channel/RequestContext.h"
#include "service/channel/TypedOutcome.h"
#include "service/channel/TypedResponder.h"

#include <QHash>
#include <QJsonObject>
#include <QString>
#include <QUuid>
#include <functional>
#include <memory>

namespace Orv::Service {

// What the service answers. Each feature adds its handlers here from its own
// file at start-up; the server and the dispatcher never change for that.
//
// A handler either returns its outcome at once, or takes a responder and
// answers through it whenever its work is done (the responder may be copied
// into a job, a timer or another request's answer).
class HandlerRegistry
{
public:
    using Request = Orv::Common::Communication::V2::Command::Request;

    using NamedHandler =
        std::function<NamedOutcome(const QJsonObject& params, const RequestContext& context)>;
    using AsyncNamedHandler = std::function<void(
        const QJsonObject& params, const RequestContext& context, const NamedResponder& responder)>;
    using AsyncTypedHandler = std::function<void(
        const Request& request, const RequestContext& context, const TypedResponder& responder)>;
    using NotificationHandler =
        std::function<void(const QJsonObject& message, const RequestContext& context)>;

    // A typed command as the service knows it: the channel's own definition,
    // which decodes its requests, and the handler.
    struct TypedEntry
    {
        std::shared_ptr<const Orv::Common::Communication::V2::Command> definition;
        AsyncTypedHandler handler;
    };

    HandlerRegistry() = default;
    HandlerRegistry(const HandlerRegistry&) = delete;
    HandlerRegistry& operator=(const HandlerRegistry&) = delete;

    void addNamed(const QString& name, NamedHandler handler);
    void addNamedAsync(const QString& name, AsyncNamedHandler handler);

    // Definition is a typed command of the channel (for example
    // V2::Plan::GetPlanList): the handler gets its own Request class.
    template <typename Definition>
    bool addTyped(std::function<TypedOutcome(const typename Definition::Request& request,
                                             const RequestContext& context)>
                      handler);
    template <typename Definition>
    bool addTypedAsync(
        std::function<void(const typename Definition::Request& request,
                           const RequestContext& context, const TypedResponder& responder)>
            handler);
    // Fails (and logs) when the channel does not know the identifier: the
    // service could not decode its requests.
    bool addTypedAsync(const QUuid& commandId, AsyncTypedHandler handler);

    void addNotification(const QUuid& type, NotificationHandler handler);

    // Null when nothing is registered under the key.
    const AsyncNamedHandler* named(const QString& name) const;
    const TypedEntry* typed(const QUuid& commandId) const;
    const NotificationHandler* notification(const QUuid& type) const;

private:
    QHash<QString, AsyncNamedHandler> m_named;
    QHash<QUuid, TypedEntry> m_typed;
    QHash<QUuid, NotificationHandler> m_notifications;
};

template <typename Definition>
bool HandlerRegistry::addTyped(
    std::function<TypedOutcome(const typename Definition::Request& request,
                               const RequestContext& context)>
        handler)
{
    return addTypedAsync<Definition>(
        [handler = std::move(handler)](
            const typename Definition::Request& request, const RequestContext& context,
            const TypedResponder& responder) { responder.answer(handler(request, context)); });
}

template <typename Definition>
bool HandlerRegistry::addTypedAsync(
    std::function<void(const typename Definition::Request& request, const RequestContext& context,
                       const TypedResponder& responder)>
        handler)
{
    return addTypedAsync(
        Definition::CommandId,
        [handler = std::move(handler)](const Request& request, const RequestContext& context,
                                       const TypedResponder& responder) {
            const auto* typed = dynamic_cast<const typename Definition::Request*>(&request);
            if (!typed) {
                responder.failed(QStringLiteral("Internal error: unexpected request type"));
                return;
            }
            handler(*typed, context, responder);
        });
}

} // namespace Orv::Service
