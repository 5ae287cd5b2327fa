#include "kelCloud/Operation.h"

namespace Kel::Cloud {

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
