#include "kelCloud/GoogleJwt.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <memory>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

namespace Kel::Cloud {

namespace {

struct KeyDeleter
{
    void operator()(EVP_PKEY* key) const { EVP_PKEY_free(key); }
};

struct BioDeleter
{
    void operator()(BIO* bio) const { BIO_free(bio); }
};

struct ContextDeleter
{
    void operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }
};

QString openSslError()
{
    const unsigned long code = ERR_get_error();
    ERR_clear_error();
    if (code == 0)
        return QStringLiteral("unknown error");
    char text[256] = {};
    ERR_error_string_n(code, text, sizeof(text));
    return QString::fromLatin1(text);
}

std::unique_ptr<EVP_PKEY, KeyDeleter> readKey(const QByteArray& pem, QString* error)
{
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(pem.constData(), pem.size()));
    std::unique_ptr<EVP_PKEY, KeyDeleter> key(
        bio ? PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key) {
        *error = QStringLiteral("the private key cannot be read: ") + openSslError();
        return nullptr;
    }
    if (EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA) {
        *error = QStringLiteral("the private key is not an RSA key");
        return nullptr;
    }
    return key;
}

} // namespace

QByteArray GoogleJwt::base64Url(const QByteArray& data)
{
    return data.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
}

QByteArray GoogleJwt::signRs256(const QByteArray& text, const QByteArray& privateKeyPem,
                                QString* error)
{
    const auto key = readKey(privateKeyPem, error);
    if (!key)
        return {};
    std::unique_ptr<EVP_MD_CTX, ContextDeleter> context(EVP_MD_CTX_new());
    size_t length = 0;
    if (!context ||
        EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key.get()) != 1 ||
        EVP_DigestSign(context.get(), nullptr, &length,
                       reinterpret_cast<const unsigned char*>(text.constData()),
                       static_cast<size_t>(text.size())) != 1) {
        *error = QStringLiteral("cannot sign: ") + openSslError();
        return {};
    }
    QByteArray signature(static_cast<int>(length), Qt::Uninitialized);
    if (EVP_DigestSign(context.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(text.constData()),
                       static_cast<size_t>(text.size())) != 1) {
        *error = QStringLiteral("cannot sign: ") + openSslError();
        return {};
    }
    signature.resize(static_cast<int>(length));
    return signature;
}

QByteArray GoogleJwt::assertion(const Claims& claims, const QByteArray& privateKeyPem,
                                QString* error)
{
    const QJsonObject header{{QStringLiteral("alg"), QStringLiteral("RS256")},
                             {QStringLiteral("typ"), QStringLiteral("JWT")}};
    const QJsonObject body{{QStringLiteral("iss"), claims.issuer},
                           {QStringLiteral("scope"), claims.scope},
                           {QStringLiteral("aud"), claims.audience},
                           {QStringLiteral("iat"), claims.issuedAt},
                           {QStringLiteral("exp"), claims.issuedAt + claims.lifetime}};
    const QByteArray signingInput =
        base64Url(QJsonDocument(header).toJson(QJsonDocument::Compact)) + '.' +
        base64Url(QJsonDocument(body).toJson(QJsonDocument::Compact));
    const QByteArray signature = signRs256(signingInput, privateKeyPem, error);
    return signature.isEmpty() ? QByteArray() : signingInput + '.' + base64Url(signature);
}

} // namespace Kel::Cloud
