#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QPair>
#include <QString>

namespace Kel::Cloud {

// Shared Key signatures of Azure Storage requests: an HMAC-SHA256, keyed with
// the account key, of a text that describes the request. The HTTP library
// knows no such scheme, so the text is made here; the HMAC is Qt's.
class AzureSharedKey
{
public:
    // headers: every header the request is sent with, any case. path: the
    // URI path exactly as sent (percent-encoded). query: the parameters,
    // decoded.
    static QByteArray stringToSign(const QByteArray& method,
                                   const QList<QPair<QByteArray, QByteArray>>& headers,
                                   const QString& account, const QByteArray& path,
                                   const QMap<QString, QString>& query);
    // The value of the Authorization header; empty when the key is not
    // base64.
    static QByteArray authorization(const QString& account, const QByteArray& base64Key,
                                    const QByteArray& stringToSign);
};

} // namespace Kel::Cloud
