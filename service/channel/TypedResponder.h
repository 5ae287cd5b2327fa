#pragma once

#include "service/channel/ReplySink.h"
#include "service/channel/TypedOutcome.h"

#include <QJsonValue>
#include <QSharedPointer>

namespace Orv::Service {

// Answers one typed request, at once or later. Copies share one answer: the
// first one given is sent and later ones are ignored. A request whose last
// copy goes away unanswered is answered as failed, so that no client waits
// for a reply that cannot come.
class TypedResponder
{
public:
    // name is the command's name as the channel knows it, for the log.
    TypedResponder(ReplySink sink, const QString& name, const QJsonValue& id);

    void answer(const TypedOutcome& outcome) const;
    void done(const TypedOutcome::Response& response) const
    {
        answer(TypedOutcome::done(response));
    }
    void failed(const QString& message) const { answer(TypedOutcome::failed(message)); }
    void tryLater(const QString& message = {}) const { answer(TypedOutcome::tryLater(message)); }

    bool isAnswered() const;
    QString name() const;

private:
    class State;
    QSharedPointer<State> m_state;
};

} // namespace Orv::Service
