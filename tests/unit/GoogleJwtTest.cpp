#include "kelCloud/GoogleJwt.h"

#include "kelCloud/GoogleAuth.h"
#include "support/QtPrinters.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>
#include <memory>
#include <openssl/evp.h>
#include <openssl/pem.h>

using namespace Kel::Cloud;

namespace {

struct Key
{
    QByteArray privatePem;
    std::shared_ptr<EVP_PKEY> key;
};

Key makeKey(int type)
{
    std::shared_ptr<EVP_PKEY_CTX> context(EVP_PKEY_CTX_new_id(type, nullptr), EVP_PKEY_CTX_free);
    EVP_PKEY* raw = nullptr;
    EVP_PKEY_keygen_init(context.get());
    if (type == EVP_PKEY_RSA)
        EVP_PKEY_CTX_set_rsa_keygen_bits(context.get(), 2048);
    EVP_PKEY_keygen(context.get(), &raw);
    Key key{{}, std::shared_ptr<EVP_PKEY>(raw, EVP_PKEY_free)};
    std::shared_ptr<BIO> bio(BIO_new(BIO_s_mem()), BIO_free);
    PEM_write_bio_PrivateKey(bio.get(), raw, nullptr, nullptr, 0, nullptr, nullptr);
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio.get(), &data);
    key.privatePem = QByteArray(data, static_cast<int>(size));
    return key;
}

bool verifies(const Key& key, const QByteArray& text, const QByteArray& signature)
{
    std::shared_ptr<EVP_MD_CTX> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    return EVP_DigestVerifyInit(context.get(), nullptr, EVP_sha256(), nullptr, key.key.get()) ==
               1 &&
           EVP_DigestVerify(context.get(),
                            reinterpret_cast<const unsigned char*>(signature.constData()),
                            static_cast<size_t>(signature.size()),
                            reinterpret_cast<const unsigned char*>(text.constData()),
                            static_cast<size_t>(text.size())) == 1;
}

QJsonObject part(const QByteArray& encoded)
{
    return QJsonDocument::fromJson(QByteArray::fromBase64(encoded, QByteArray::Base64UrlEncoding))
        .object();
}

} // namespace

TEST(GoogleJwt, TheAssertionIsAnRs256TokenOpenSslVerifies)
{
    const Key key = makeKey(EVP_PKEY_RSA);
    GoogleJwt::Claims claims;
    claims.issuer = QStringLiteral("backup@project.iam.gserviceaccount.com");
    claims.scope = QStringLiteral("https://www.googleapis.com/auth/devstorage.read_write");
    claims.audience = QStringLiteral("https://oauth2.googleapis.com/token");
    claims.issuedAt = 1700000000;
    QString error;
    const QByteArray token = GoogleJwt::assertion(claims, key.privatePem, &error);
    ASSERT_FALSE(token.isEmpty()) << error.toStdString();

    const QList<QByteArray> parts = token.split('.');
    ASSERT_EQ(parts.size(), 3);
    // base64url without padding: nothing that a form or a URL would mangle.
    for (const QByteArray& piece : parts)
        EXPECT_FALSE(piece.contains('=') || piece.contains('+') || piece.contains('/'));
    EXPECT_EQ(part(parts[0]), QJsonObject({{"alg", "RS256"}, {"typ", "JWT"}}));
    const QJsonObject body = part(parts[1]);
    EXPECT_EQ(body.value("iss").toString(), claims.issuer);
    EXPECT_EQ(body.value("scope").toString(), claims.scope);
    EXPECT_EQ(body.value("aud").toString(), claims.audience);
    EXPECT_EQ(body.value("iat").toInt(), 1700000000);
    EXPECT_EQ(body.value("exp").toInt(), 1700003600);
    const QByteArray signature = QByteArray::fromBase64(parts[2], QByteArray::Base64UrlEncoding);
    EXPECT_EQ(signature.size(), 256);
    EXPECT_TRUE(verifies(key, parts[0] + '.' + parts[1], signature));
    EXPECT_FALSE(verifies(key, parts[0] + '.' + parts[1] + ' ', signature));
}

TEST(GoogleJwt, KeysThatCannotSignAreRefusedWithAReason)
{
    QString error;
    const GoogleJwt::Claims claims;
    EXPECT_TRUE(GoogleJwt::assertion(claims, "not a key", &error).isEmpty());
    EXPECT_TRUE(error.contains(QStringLiteral("cannot be read"))) << error.toStdString();
    EXPECT_TRUE(
        GoogleJwt::assertion(claims, makeKey(EVP_PKEY_ED25519).privatePem, &error).isEmpty());
    EXPECT_EQ(error, QStringLiteral("the private key is not an RSA key"));
}

TEST(GoogleAuth, NamesAndValues)
{
    GoogleAuth::Type type = GoogleAuth::ServiceAcc;
    EXPECT_TRUE(GoogleAuth::parse({}, &type));
    EXPECT_EQ(type, GoogleAuth::AccessKey);
    EXPECT_TRUE(GoogleAuth::parse(QStringLiteral("InstallApp"), &type));
    EXPECT_EQ(type, GoogleAuth::InstallApp);
    EXPECT_TRUE(GoogleAuth::parse(QStringLiteral("1"), &type));
    EXPECT_EQ(type, GoogleAuth::ServiceAcc);
    EXPECT_FALSE(GoogleAuth::parse(QStringLiteral("serviceacc"), &type));
    EXPECT_FALSE(GoogleAuth::parse(QStringLiteral("7"), &type));
    EXPECT_EQ(GoogleAuth::TypeName().values(),
              QStringList({"AccessKey", "ServiceAcc", "InstallApp"}));
}
