#include "kelCloud/AzureSharedKey.h"

#include <QMessageAuthenticationCode>
#include <QRegularExpression>
#include <QStringList>

namespace Kel::Cloud {

namespace {

// The standard headers of the signed text, in its order.
const char* const StandardHeaders[] = {
    "content-encoding",
    "content-language",
    "content-length",
    "content-md5",
    "content-type",
    "date",
    "if-modified-since",
    "if-match",
    "if-none-match",
    "if-unmodified-since",
    "range",
};

QByteArray valueOf(const QList<QPair<QByteArray, QByteArray>>& headers, const QByteArray& name)
{
    for (const auto& header : headers)
        if (header.first.toLower() == name)
            return header.second.trimmed();
    return {};
}

QByteArray canonicalHeaders(const QList<QPair<QByteArray, QByteArray>>& headers)
{
    static const QRegularExpression blanks(QStringLiteral("\\s+"));
    QMap<QByteArray, QByteArray> msHeaders;
    for (const auto& header : headers) {
        const QByteArray name = header.first.trimmed().toLower();
        if (name.startsWith("x-ms-"))
            msHeaders.insert(name, QString::fromUtf8(header.second)
                                       .trimmed()
                                       .replace(blanks, QStringLiteral(" "))
                                       .toUtf8());
    }
    QByteArray text;
    for (auto it = msHeaders.cbegin(); it != msHeaders.cend(); ++it)
        text += it.key() + ':' + it.value() + '\n';
    return text;
}

QByteArray canonicalResource(const QString& account, const QByteArray& path,
                             const QMap<QString, QString>& query)
{
    QByteArray text = '/' + account.toUtf8() + (path.isEmpty() ? QByteArray("/") : path);
    QMap<QString, QStringList> parameters;
    for (auto it = query.cbegin(); it != query.cend(); ++it)
        parameters[it.key().toLower()].append(it.value());
    for (auto it = parameters.begin(); it != parameters.end(); ++it) {
        it.value().sort();
        text += '\n' + it.key().toUtf8() + ':' + it.value().join(QLatin1Char(',')).toUtf8();
    }
    return text;
}

} // namespace

QByteArray AzureSharedKey::stringToSign(const QByteArray& method,
                                        const QList<QPair<QByteArray, QByteArray>>& headers,
                                        const QString& account, const QByteArray& path,
                                        const QMap<QString, QString>& query)
{
    QByteArray text = method + '\n';
    for (const char* name : StandardHeaders) {
        QByteArray value = valueOf(headers, name);
        // A zero length is signed as none at all.
        if (qstrcmp(name, "content-length") == 0 && value == "0")
            value.clear();
        text += value + '\n';
    }
    return text + canonicalHeaders(headers) + canonicalResource(account, path, query);
}

QByteArray AzureSharedKey::authorization(const QString& account, const QByteArray& base64Key,
                                         const QByteArray& stringToSign)
{
    const auto decoded = QByteArray::fromBase64Encoding(base64Key.trimmed(),
                                                        QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.isEmpty())
        return {};
    const QByteArray signature =
        QMessageAuthenticationCode::hash(stringToSign, decoded.decoded, QCryptographicHash::Sha256)
            .toBase64();
    return "SharedKey " + account.toUtf8() + ':' + signature;
}

} // namespace Kel::Cloud
