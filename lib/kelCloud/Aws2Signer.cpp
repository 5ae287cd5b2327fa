#include "kelCloud/Aws2Signer.h"

#include <QSet>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace Kel::Cloud {

namespace {

// The query parameters that name a sub-resource and are therefore signed.
const QSet<QString>& subResources()
{
    static const QSet<QString> names{
        QStringLiteral("acl"),
        QStringLiteral("cors"),
        QStringLiteral("delete"),
        QStringLiteral("lifecycle"),
        QStringLiteral("location"),
        QStringLiteral("logging"),
        QStringLiteral("notification"),
        QStringLiteral("partNumber"),
        QStringLiteral("policy"),
        QStringLiteral("requestPayment"),
        QStringLiteral("restore"),
        QStringLiteral("tagging"),
        QStringLiteral("torrent"),
        QStringLiteral("uploadId"),
        QStringLiteral("uploads"),
        QStringLiteral("versionId"),
        QStringLiteral("versioning"),
        QStringLiteral("versions"),
        QStringLiteral("website"),
        QStringLiteral("response-cache-control"),
        QStringLiteral("response-content-disposition"),
        QStringLiteral("response-content-encoding"),
        QStringLiteral("response-content-language"),
        QStringLiteral("response-content-type"),
        QStringLiteral("response-expires"),
    };
    return names;
}

} // namespace

QByteArray Aws2Signer::resource(const QByteArray& encodedPath, const QMap<QString, QString>& query)
{
    QByteArray result = encodedPath;
    char separator = '?';
    // QMap iterates in name order, the order the signature wants.
    for (auto it = query.cbegin(); it != query.cend(); ++it) {
        if (!subResources().contains(it.key()))
            continue;
        result += separator + it.key().toUtf8();
        if (!it.value().isEmpty())
            result += '=' + it.value().toUtf8();
        separator = '&';
    }
    return result;
}

QByteArray Aws2Signer::stringToSign(const QByteArray& method, const QByteArray& contentMd5,
                                    const QByteArray& contentType, const QByteArray& date,
                                    const QMap<QByteArray, QByteArray>& amzHeaders,
                                    const QByteArray& resource)
{
    QByteArray text = method + '\n' + contentMd5 + '\n' + contentType + '\n' + date + '\n';
    for (auto it = amzHeaders.cbegin(); it != amzHeaders.cend(); ++it)
        text += it.key() + ':' + it.value().trimmed() + '\n';
    return text + resource;
}

QByteArray Aws2Signer::sign(const QByteArray& secretKey, const QByteArray& stringToSign)
{
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int length = 0;
    HMAC(EVP_sha1(), secretKey.constData(), secretKey.size(),
         reinterpret_cast<const unsigned char*>(stringToSign.constData()),
         static_cast<size_t>(stringToSign.size()), digest, &length);
    return QByteArray(reinterpret_cast<const char*>(digest), static_cast<int>(length)).toBase64();
}

QByteArray Aws2Signer::authorization(const QByteArray& accessKey, const QByteArray& signature)
{
    return "AWS " + accessKey + ':' + signature;
}

} // namespace Kel::Cloud
