#pragma once

#include <QByteArray>
#include <QMap>
#include <QString>

namespace Kel::Cloud {

// Version 2 signatures of S3 requests (HMAC-SHA1 over a description of the
// request). The HTTP library signs only version 4, so these are made here.
class Aws2Signer
{
public:
    // The resource part of the signed text: the encoded path with the bucket
    // ("/bucket/key", "/bucket", or "/" for the service) followed by the
    // sub-resources of the query, sorted.
    static QByteArray resource(const QByteArray& encodedPath, const QMap<QString, QString>& query);
    // amzHeaders: the request's "x-amz-" headers, names in lower case.
    static QByteArray stringToSign(const QByteArray& method, const QByteArray& contentMd5,
                                   const QByteArray& contentType, const QByteArray& date,
                                   const QMap<QByteArray, QByteArray>& amzHeaders,
                                   const QByteArray& resource);
    // Base64 of the HMAC-SHA1 of the text.
    static QByteArray sign(const QByteArray& secretKey, const QByteArray& stringToSign);
    // The value of the Authorization header.
    static QByteArray authorization(const QByteArray& accessKey, const QByteArray& signature);
};

} // namespace Kel::Cloud
