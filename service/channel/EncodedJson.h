#pragma once

#include <QByteArray>
#include <QJsonObject>

namespace Orv::Service {

// A JSON object already in its compact text form. Answers that are asked for
// far more often than they change (the plan list) keep theirs encoded, so a
// request costs a copy instead of a walk through every row.
class EncodedJson
{
public:
    EncodedJson() = default;
    explicit EncodedJson(const QJsonObject& object);

    // "{}" for a default-constructed value.
    QByteArray text() const;

    // The frame of an object holding object's members and, under key (a
    // plain ASCII name that object does not have), this value.
    QByteArray frameWith(const QJsonObject& object, const char* key) const;

private:
    QByteArray m_text;
};

} // namespace Orv::Service
