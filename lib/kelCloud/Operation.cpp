#include "kelCloud/Operation.h"

#include <QMetaEnum>

namespace Kel::Cloud {

namespace {

const QString kError = QStringLiteral("error");
const QString kErrorString = QStringLiteral("errorString");
const QString kResult = QStringLiteral("result");
const QString kPeerCertificates = QStringLiteral("peerCertificates");
const QString kConfigChanges = QStringLiteral("configChanges");

} // namespace

QJsonObject Operation::toJson() const
{
    // The error by name: the numbering is this build's own.
    return {{kError, QLatin1String(QMetaEnum::fromType<Error>().valueToKey(int(m_error)))},
            {kErrorString, m_errorString},
            {kResult, m_result},
            {kPeerCertificates, QString::fromLatin1(m_peerCertificates)},
            {kConfigChanges, QJsonObject::fromVariantMap(m_configChanges)}};
}

Operation* Operation::fromJson(const QJsonObject& object, QObject* parent)
{
    auto* operation = new Operation(parent);
    bool known = false;
    const int error = QMetaEnum::fromType<Error>().keyToValue(
        object.value(kError).toString().toLatin1().constData(), &known);
    operation->m_finished = true;
    operation->m_error = known ? static_cast<Error>(error) : Error::Unknown;
    operation->m_errorString = object.value(kErrorString).toString();
    operation->m_result = object.value(kResult).toArray();
    operation->m_peerCertificates = object.value(kPeerCertificates).toString().toLatin1();
    operation->m_configChanges = object.value(kConfigChanges).toObject().toVariantMap();
    return operation;
}

void Operation::finish(Error error, const QString& errorString, const QJsonArray& result,
                       const QByteArray& peerCertificates)
{
    if (m_finished)
        return;
    m_finished = true;
    m_error = error;
    m_errorString = errorString;
    m_result = result;
    m_peerCertificates = peerCertificates;
    emit finished();
    if (m_autoDelete)
        deleteLater();
}

} // namespace Kel::Cloud
