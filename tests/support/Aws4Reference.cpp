#include "support/Aws4Reference.h"

#include <QCryptographicHash>
#include <QMessageAuthenticationCode>
#include <QRegularExpression>
#include <algorithm>

namespace OrvTest {

namespace {

QByteArray hmac(const QByteArray& key, const QByteArray& message)
{
    return QMessageAuthenticationCode::hash(message, key, QCryptographicHash::Sha256);
}

QByteArray encoded(const QByteArray& decoded, bool keepSlash)
{
    return decoded.toPercentEncoding(keepSlash ? "/" : "", "", '%');
}

} // namespace

QByteArray Aws4Reference::signingKey(const QByteArray& secret, const QByteArray& date,
                                     const QByteArray& region, const QByteArray& service)
{
    return hmac(hmac(hmac(hmac("AWS4" + secret, date), region), service), "aws4_request");
}

QByteArray Aws4Reference::canonicalRequest(const QByteArray& method, const QByteArray& path,
                                           const QByteArray& query,
                                           const QList<QPair<QByteArray, QByteArray>>& headers,
                                           const QByteArray& signedHeaders,
                                           const QByteArray& payloadHash)
{
    QByteArray text = method + '\n' + path + '\n' + query + '\n';
    for (const auto& header : headers)
        text += header.first + ':' + header.second.simplified() + '\n';
    return text + '\n' + signedHeaders + '\n' + payloadHash;
}

QByteArray Aws4Reference::stringToSign(const QByteArray& timestamp, const QByteArray& scope,
                                       const QByteArray& canonicalRequest)
{
    return "AWS4-HMAC-SHA256\n" + timestamp + '\n' + scope + '\n' +
           QCryptographicHash::hash(canonicalRequest, QCryptographicHash::Sha256).toHex();
}

QByteArray Aws4Reference::signature(const QByteArray& signingKey, const QByteArray& stringToSign)
{
    return hmac(signingKey, stringToSign).toHex();
}

QByteArray Aws4Reference::canonicalQuery(const QByteArray& query)
{
    if (query.isEmpty())
        return {};
    QList<QPair<QByteArray, QByteArray>> parameters;
    for (const QByteArray& part : query.split('&')) {
        const int equals = part.indexOf('=');
        const QByteArray name = equals < 0 ? part : part.left(equals);
        const QByteArray value = equals < 0 ? QByteArray() : part.mid(equals + 1);
        parameters.append({encoded(QByteArray::fromPercentEncoding(name), false),
                           encoded(QByteArray::fromPercentEncoding(value), false)});
    }
    std::sort(parameters.begin(), parameters.end());
    QByteArray result;
    for (const auto& parameter : parameters)
        result += (result.isEmpty() ? "" : "&") + parameter.first + '=' + parameter.second;
    return result;
}

QByteArray Aws4Reference::canonicalPath(const QByteArray& path)
{
    return encoded(QByteArray::fromPercentEncoding(path), true);
}

QString Aws4Reference::verify(const RecordingHttpServer::Request& request, const QByteArray& secret)
{
    static const QRegularExpression form(QStringLiteral(
        R"(^AWS4-HMAC-SHA256 Credential=([^/]+)/(\d{8})/([^/]+)/([^/]+)/aws4_request, *SignedHeaders=([^,]+), *Signature=([0-9a-f]{64})$)"));
    const QRegularExpressionMatch match =
        form.match(QString::fromLatin1(request.header("Authorization")));
    if (!match.hasMatch())
        return QStringLiteral("not a version 4 authorization: ") +
               QString::fromLatin1(request.header("Authorization"));
    const QByteArray date = match.captured(2).toLatin1();
    const QByteArray region = match.captured(3).toLatin1();
    const QByteArray service = match.captured(4).toLatin1();
    const QByteArray signedHeaders = match.captured(5).toLatin1();
    const QByteArray timestamp = request.header("x-amz-date");
    if (!timestamp.startsWith(date))
        return QStringLiteral("x-amz-date does not match the credential's date");
    const QByteArray payloadHash = request.header("x-amz-content-sha256");
    if (payloadHash != QCryptographicHash::hash(request.body, QCryptographicHash::Sha256).toHex())
        return QStringLiteral("x-amz-content-sha256 is not the body's hash");
    QList<QPair<QByteArray, QByteArray>> headers;
    for (const QByteArray& name : signedHeaders.split(';')) {
        if (request.header(name).isNull() && name != "host")
            return QStringLiteral("signed header %1 was not sent").arg(QString::fromLatin1(name));
        headers.append({name, request.header(name)});
    }
    if (!signedHeaders.split(';').contains("host") ||
        !signedHeaders.split(';').contains("x-amz-content-sha256"))
        return QStringLiteral("host or x-amz-content-sha256 is not signed");
    const QByteArray canonical =
        canonicalRequest(request.method, canonicalPath(request.path()),
                         canonicalQuery(request.query()), headers, signedHeaders, payloadHash);
    const QByteArray scope = date + '/' + region + '/' + service + "/aws4_request";
    const QByteArray expected = signature(signingKey(secret, date, region, service),
                                          stringToSign(timestamp, scope, canonical));
    if (expected != match.captured(6).toLatin1())
        return QStringLiteral("signature differs; canonical request:\n") +
               QString::fromLatin1(canonical);
    return {};
}

} // namespace OrvTest
