#pragma once

#include "kelCore/LogManager.h"

#include <QByteArray>
#include <QJsonValue>
#include <functional>

namespace Orv::Service {

// Where the answer to one request goes: one encoded frame, written to the
// connection the request came from, or dropped once that connection is gone.
using ReplySink = std::function<void(const QByteArray& frame)>;

// What an answer carries back of its request is bounded, so that no answer
// (or log line) grows with what a client sent: names and messages are cut to
// a length no real one reaches, and the exchange id is echoed only when it is
// a number or a short text, as every client's own are.
inline constexpr int kEchoedNameChars = 256;
inline constexpr int kMessageChars = 4096;

inline QString echoedName(const QString& name)
{
    return Kel::clipped(name, kEchoedNameChars);
}

inline QString boundedMessage(const QString& message)
{
    return Kel::clipped(message, kMessageChars);
}

inline QJsonValue echoedId(const QJsonValue& id)
{
    if (id.isDouble() || (id.isString() && id.toString().size() <= kEchoedNameChars))
        return id;
    return QJsonValue::Null;
}

} // namespace Orv::Service
