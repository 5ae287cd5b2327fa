#pragma once

#include "orvCommon/Communication/V2Command.h"
#include "service/channel/EncodedJson.h"

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

    static TypedOutcome done(const Response& response)
    {
        return {Command::Done, {}, EncodedJson(response.toJson())};
    }
    static TypedOutcome done(const EncodedJson& response) { return {Command::Done, {}, response}; }
    static TypedOutcome failed(const QString& message) { return {Command::Failed, message, {}}; }
    static TypedOutcome tryLater(const QString& message = {})
    {
        return {Command::TryLater, message, {}};
    }

    int status() const { return m_status; }
    QString errorMessage() const { return m_errorMessage; }
    EncodedJson response() const { return m_response; }

private:
    TypedOutcome(int status, const QString& errorMessage, const EncodedJson& response)
        : m_status(status), m_errorMessage(errorMessage), m_response(response)
    {
    }

    int m_status = Command::Failed;
    QString m_errorMessage;
    EncodedJson m_response;
};

} // namespace Orv::Service
