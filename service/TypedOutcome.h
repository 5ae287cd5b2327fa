#pragma once

#include "orvCommon/Communication/V2Command.h"

#include <QSharedPointer>
#include <QString>

namespace Orv::Service {

// The result of a typed command: a status the client understands (done,
// failed, try later), the message that goes with a failure, and the response.
class TypedOutcome
{
public:
    using Command = Orv::Common::Communication::V2::Command;
    using Response = Command::Response;

    static TypedOutcome done(QSharedPointer<const Response> response)
    {
        return {Command::Done, {}, std::move(response)};
    }
    static TypedOutcome failed(const QString& message) { return {Command::Failed, message, {}}; }
    static TypedOutcome tryLater(const QString& message = {})
    {
        return {Command::TryLater, message, {}};
    }

    int status() const { return m_status; }
    QString errorMessage() const { return m_errorMessage; }
    QSharedPointer<const Response> response() const { return m_response; }

private:
    TypedOutcome(int status, const QString& errorMessage, QSharedPointer<const Response> response)
        : m_status(status), m_errorMessage(errorMessage), m_response(std::move(response))
    {
    }

    int m_status = Command::Failed;
    QString m_errorMessage;
    QSharedPointer<const Response> m_response;
};

} // namespace Orv::Service
