#include "service/channel/HandlerRegistry.h"

#include "orvCommon/Communication/Registry.h"
#include "service/ServiceLog.h"

namespace Orv::Service {

void HandlerRegistry::addNamed(const QString& name, NamedHandler handler)
{
    addNamedAsync(name, [handler = std::move(handler)](const QJsonObject& params,
                                                       const RequestContext& context,
                                                       const NamedResponder& responder) {
        responder.answer(handler(params, context));
    });
}

void HandlerRegistry::addNamedAsync(const QString& name, AsyncNamedHandler handler)
{
    if (m_named.contains(name))
        qCWarning(lcService).noquote() << "A second handler replaces the first for" << name;
    m_named.insert(name, std::move(handler));
}

bool HandlerRegistry::addTypedAsync(const QUuid& commandId, AsyncTypedHandler handler)
{
    std::shared_ptr<const Orv::Common::Communication::V2::Command> definition(
        Orv::Common::Communication::Registry::createTypedCommand(commandId));
    if (!definition) {
        qCWarning(lcService).noquote()
            << "No handler for" << commandId.toString() << "- the channel does not know it";
        return false;
    }
    if (m_typed.contains(commandId))
        qCWarning(lcService).noquote()
            << "A second handler replaces the first for" << definition->name();
    m_typed.insert(commandId, {std::move(definition), std::move(handler)});
    return true;
}

void HandlerRegistry::addNotification(const QUuid& type, NotificationHandler handler)
{
    m_notifications.insert(type, std::move(handler));
}

const HandlerRegistry::AsyncNamedHandler* HandlerRegistry::named(const QString& name) const
{
    const auto it = m_named.constFind(name);
    return it == m_named.cend() ? nullptr : &it.value();
}

const HandlerRegistry::TypedEntry* HandlerRegistry::typed(const QUuid& commandId) const
{
    const auto it = m_typed.constFind(commandId);
    return it == m_typed.cend() ? nullptr : &it.value();
}

const HandlerRegistry::NotificationHandler* HandlerRegistry::notification(const QUuid& type) const
{
    const auto it = m_notifications.constFind(type);
    return it == m_notifications.cend() ? nullptr : &it.value();
}

} // namespace Orv::Service
