#pragma once

#include "service/channel/NamedOutcome.h"
#include "service/channel/ReplySink.h"

#include <QJsonValue>
#include <QSharedPointer>

namespace Orv::Service {

// Answers one named request, at once or later. Copies share one answer: the
// first one given is sent and later ones are ignored. A request whose last
// copy goes away unanswered is answered with an error, so that no client
// waits for a reply that cannot come.
class NamedResponder
{
public:
    NamedResponder(ReplySink sink, const QString& command, const QJsonValue& id,
                   const QString& sessionId);

    void answer(const NamedOutcome& outcome) const;
    void success(const QJsonObject& data = {}) const { answer(NamedOutcome::success(data)); }
    void failure(const QString& message) const { answer(NamedOutcome::failure(message)); }

    bool isAnswered() const;
    QString command() const;

private:
    class State;
    QSharedPointer<State> m_state;
};

} // namespace Orv::Service
