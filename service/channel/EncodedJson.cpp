#include "service/channel/EncodedJson.h"

#include "orvCommon/Communication/Frame.h"

#include <QJsonDocument>
#include <QtEndian>

namespace Orv::Service {

EncodedJson::EncodedJson(const QJsonObject& object)
    : m_text(QJsonDocument(object).toJson(QJsonDocument::Compact))
{
}

QByteArray EncodedJson::text() const
{
    return m_text.isEmpty() ? QByteArrayLiteral("{}") : m_text;
}

QByteArray EncodedJson::frameWith(const QJsonObject& object, const char* key) const
{
    namespace Communication = Orv::Common::Communication;
    const QByteArray head = QJsonDocument(object).toJson(QJsonDocument::Compact);
    const QByteArray value = text();
    QByteArray frame;
    frame.reserve(Communication::kFrameHeaderSize + head.size() + qstrlen(key) + value.size() + 5);
    frame.resize(Communication::kFrameHeaderSize);
    // The object's text without its closing brace, then the member.
    frame.append(head.constData(), head.size() - 1);
    if (!object.isEmpty())
        frame.append(',');
    frame.append('"').append(key).append("\":").append(value).append('}');
    qToBigEndian<quint32>(static_cast<quint32>(frame.size() - Communication::kFrameHeaderSize),
                          frame.data());
    return frame;
}

} // namespace Orv::Service
