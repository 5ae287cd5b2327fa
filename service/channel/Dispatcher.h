#pragma once

#include "service/channel/HandlerRegistry.h"
#include "service/channel/ReplySink.h"
#include "service/channel/RequestContext.h"

#include <QJsonObject>

namespace Orv::Service {

// Turns one message from a client into a handler call and makes sure every
// request gets exactly one answer: unknown commands and malformed requests are
// refused with a reply, never by dropping the connection.
class Dispatcher
{
public:
    explicit Dispatcher(const HandlerRegistry& registry) : m_registry(registry) {}

    // Until the service is ready (database open, configuration loaded) typed
    // commands are answered with "try later".
    void setReady(bool ready) { m_ready = ready; }
    bool isReady() const { return m_ready; }

    // Handles requests, typed requests and notifications; context describes
    // the connection, sink takes the answer.
    void dispatch(const QJsonObject& message, RequestContext context, const ReplySink& sink) const;

private:
    void dispatchNamed(const QJsonObject& message, const RequestContext& context,
                       const ReplySink& sink) const;
    void dispatchTyped(const QJsonObject& message, const RequestContext& context,
                       const ReplySink& sink) const;
    void dispatchNotification(const QJsonObject& message, const RequestContext& context) const;

    const HandlerRegistry& m_registry;
    bool m_ready = false;
};

} // namespace Orv::Service
