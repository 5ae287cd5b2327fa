#pragma once

#include "service/channel/EncodedJson.h"

#include <QJsonObject>
#include <QString>

namespace Orv::Service {

// The result of a named command: the reply's data, or the message of a refusal.
class NamedOutcome
{
public:
    static NamedOutcome success(const QJsonObject& data = {})
    {
        return {true, EncodedJson(data), {}};
    }
    static NamedOutcome success(const EncodedJson& data) { return {true, data, {}}; }
    static NamedOutcome failure(const QString& message) { return {false, {}, message}; }

    bool isSuccess() const { return m_success; }
    EncodedJson data() const { return m_data; }
    QString errorString() const { return m_errorString; }

private:
    NamedOutcome(bool success, const EncodedJson& data, const QString& errorString)
        : m_success(success), m_data(data), m_errorString(errorString)
    {
    }

    bool m_success = false;
    EncodedJson m_data;
    QString m_errorString;
};

} // namespace Orv::Service
