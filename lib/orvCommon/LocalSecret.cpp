#include "orvCommon/LocalSecret.h"

#include "orvCommon/AppPath.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryFile>
#include <cerrno>
#include <memory>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <unistd.h>

namespace Orv::Common {

namespace {

constexpr int kKeySize = 32;
constexpr int kNonceSize = 12;
constexpr int kTagSize = 16;
const QByteArray kPrefix = QByteArrayLiteral("v1:");

struct CipherDeleter
{
    void operator()(EVP_CIPHER_CTX* context) const { EVP_CIPHER_CTX_free(context); }
};
using Cipher = std::unique_ptr<EVP_CIPHER_CTX, CipherDeleter>;

// Wipes the key from memory when it goes out of scope.
class KeyBytes
{
public:
    explicit KeyBytes(QByteArray bytes) : m_bytes(std::move(bytes)) {}
    ~KeyBytes() { OPENSSL_cleanse(m_bytes.data(), static_cast<size_t>(m_bytes.size())); }
    KeyBytes(const KeyBytes&) = delete;
    KeyBytes& operator=(const KeyBytes&) = delete;
    const unsigned char* data() const
    {
        return reinterpret_cast<const unsigned char*>(m_bytes.constData());
    }

private:
    QByteArray m_bytes;
};

unsigned char* bytes(QByteArray& array)
{
    return reinterpret_cast<unsigned char*>(array.data());
}

const unsigned char* bytes(const QByteArray& array)
{
    return reinterpret_cast<const unsigned char*>(array.constData());
}

bool fail(QString* error, const QString& reason)
{
    if (error)
        *error = reason;
    return false;
}

} // namespace

LocalSecret::LocalSecret(const QString& keyFile) : m_keyFile(keyFile) {}

QString LocalSecret::keyPath() const
{
    return m_keyFile.isEmpty() ? Defines::AppPath::to().keyFile() : m_keyFile;
}

bool LocalSecret::isEncrypted(const QString& text)
{
    return text.startsWith(QLatin1String(kPrefix));
}

std::optional<QByteArray> LocalSecret::readKey(QString* error) const
{
    QFile file(keyPath());
    if (!file.exists()) {
        fail(error, QStringLiteral("the installation's key file is missing"));
        return std::nullopt;
    }
    if (!file.open(QIODevice::ReadOnly)) {
        fail(error, QStringLiteral("the installation's key file cannot be read"));
        return std::nullopt;
    }
    QByteArray key = file.read(kKeySize + 1);
    if (key.size() != kKeySize) {
        OPENSSL_cleanse(key.data(), static_cast<size_t>(key.size()));
        fail(error, QStringLiteral("the installation's key file is damaged"));
        return std::nullopt;
    }
    return key;
}

std::optional<QByteArray> LocalSecret::readOrCreateKey(QString* error) const
{
    const QString path = keyPath();
    if (QFileInfo::exists(path))
        return readKey(error);
    const QString folder = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(folder)) {
        fail(error, QStringLiteral("cannot create the folder of the key file"));
        return std::nullopt;
    }
    QByteArray key(kKeySize, '\0');
    if (RAND_bytes(bytes(key), kKeySize) != 1) {
        fail(error, QStringLiteral("no random numbers for a new key"));
        return std::nullopt;
    }
    // Written in full under a temporary name (owner-only), then linked into
    // place: link() never replaces an existing file, so when two processes make
    // a key at the same moment, one key wins and both use it.
    QTemporaryFile staging(QDir(folder).filePath(QStringLiteral(".local.key.XXXXXX")));
    const bool staged = staging.open() && staging.write(key) == key.size() && staging.flush() &&
                        ::fsync(staging.handle()) == 0;
    OPENSSL_cleanse(key.data(), static_cast<size_t>(key.size()));
    if (!staged) {
        fail(error, QStringLiteral("cannot write a new key file"));
        return std::nullopt;
    }
    if (::link(QFile::encodeName(staging.fileName()).constData(),
               QFile::encodeName(path).constData()) != 0 &&
        errno != EEXIST) {
        fail(error, QStringLiteral("cannot put the new key file in place"));
        return std::nullopt;
    }
    return readKey(error);
}

QString LocalSecret::encrypt(const QByteArray& plain, QString* error) const
{
    std::optional<QByteArray> loaded = readOrCreateKey(error);
    if (!loaded)
        return QString();
    const KeyBytes key(std::move(*loaded));

    QByteArray sealed(kNonceSize + plain.size() + kTagSize, '\0');
    unsigned char* nonce = bytes(sealed);
    unsigned char* body = nonce + kNonceSize;
    if (RAND_bytes(nonce, kNonceSize) != 1) {
        fail(error, QStringLiteral("no random numbers for the nonce"));
        return QString();
    }
    const Cipher context(EVP_CIPHER_CTX_new());
    int length = 0;
    int tail = 0;
    const bool ok =
        context &&
        EVP_EncryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce) == 1 &&
        EVP_EncryptUpdate(context.get(), nullptr, &length, bytes(kPrefix), kPrefix.size()) == 1 &&
        EVP_EncryptUpdate(context.get(), body, &length, bytes(plain), plain.size()) == 1 &&
        EVP_EncryptFinal_ex(context.get(), body + length, &tail) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, body + plain.size()) ==
            1;
    if (!ok) {
        fail(error, QStringLiteral("encryption failed"));
        return QString();
    }
    return QString::fromLatin1(kPrefix + sealed.toBase64());
}

std::optional<QByteArray> LocalSecret::decrypt(const QString& text, QString* error) const
{
    if (!isEncrypted(text)) {
        fail(error, QStringLiteral("the value is not an encrypted secret"));
        return std::nullopt;
    }
    const QByteArray::FromBase64Result decoded = QByteArray::fromBase64Encoding(
        text.mid(kPrefix.size()).toLatin1(), QByteArray::AbortOnBase64DecodingErrors);
    if (!decoded || decoded.decoded.size() < kNonceSize + kTagSize) {
        fail(error, QStringLiteral("the encrypted secret is damaged"));
        return std::nullopt;
    }
    std::optional<QByteArray> loaded = readKey(error);
    if (!loaded)
        return std::nullopt;
    const KeyBytes key(std::move(*loaded));

    QByteArray sealed = decoded.decoded;
    const int bodySize = sealed.size() - kNonceSize - kTagSize;
    unsigned char* nonce = bytes(sealed);
    unsigned char* body = nonce + kNonceSize;
    unsigned char* tag = body + bodySize;
    QByteArray plain(bodySize, '\0');
    const Cipher context(EVP_CIPHER_CTX_new());
    int length = 0;
    int tail = 0;
    const bool ok =
        context &&
        EVP_DecryptInit_ex(context.get(), EVP_aes_256_gcm(), nullptr, key.data(), nonce) == 1 &&
        EVP_DecryptUpdate(context.get(), nullptr, &length, bytes(kPrefix), kPrefix.size()) == 1 &&
        EVP_DecryptUpdate(context.get(), bytes(plain), &length, body, bodySize) == 1 &&
        EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag) == 1 &&
        EVP_DecryptFinal_ex(context.get(), bytes(plain) + length, &tail) == 1;
    if (!ok) {
        OPENSSL_cleanse(plain.data(), static_cast<size_t>(plain.size()));
        fail(error, QStringLiteral("the secret cannot be decrypted with this installation's key"));
        return std::nullopt;
    }
    return plain;
}

} // namespace Orv::Common
