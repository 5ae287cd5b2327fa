#include "Cipher.h"

#include "Hash.h"

#include <cstring>
#include <limits>
#include <openssl/evp.h>

namespace Kel::Streams {

namespace {

const char* algorithmFor(int keySize)
{
    switch (keySize) {
    case 16:
        return "AES-128-GCM";
    case 24:
        return "AES-192-GCM";
    case 32:
        return "AES-256-GCM";
    default:
        return nullptr;
    }
}

// EVP lengths are ints.
constexpr std::size_t kMaxPlain =
    std::size_t(std::numeric_limits<int>::max()) - Cipher::kOverhead - 64;

} // namespace

// The key schedule is set once; each message only sets its nonce and
// direction, which GCM allows without re-keying.
struct Cipher::State
{
    EVP_CIPHER* cipher = nullptr;
    EVP_CIPHER_CTX* ctx = nullptr;
    bool valid = false;

    ~State()
    {
        EVP_CIPHER_CTX_free(ctx);
        EVP_CIPHER_free(cipher);
    }

    bool start(const uchar* nonce, int encrypt, const QByteArray& associated)
    {
        int unused = 0;
        return EVP_CipherInit_ex(ctx, nullptr, nullptr, nullptr, nonce, encrypt) == 1 &&
               (associated.isEmpty() ||
                EVP_CipherUpdate(ctx, nullptr, &unused,
                                 reinterpret_cast<const uchar*>(associated.constData()),
                                 associated.size()) == 1);
    }
};

Cipher::Cipher(const QByteArray& key) : d(new State)
{
    const char* algorithm = algorithmFor(key.size());
    if (!algorithm)
        return;
    d->cipher = EVP_CIPHER_fetch(nullptr, algorithm, nullptr);
    d->ctx = EVP_CIPHER_CTX_new();
    if (!d->cipher || !d->ctx)
        qFatal("kelStreams: cannot set up %s", algorithm);
    d->valid = EVP_CipherInit_ex(d->ctx, d->cipher, nullptr,
                                 reinterpret_cast<const uchar*>(key.constData()), nullptr, 1) == 1;
}

Cipher::~Cipher() = default;

bool Cipher::isValid() const
{
    return d->valid;
}

bool Cipher::seal(const char* data, std::size_t size, QByteArray* out, const QByteArray& associated)
{
    if (!d->valid || size > kMaxPlain || std::size_t(out->size()) > kMaxPlain - size)
        return false;
    const QByteArray nonce = randomBytes(kNonceSize);
    const int start = out->size();
    out->resize(start + kOverhead + int(size));
    auto* nonceOut = reinterpret_cast<uchar*>(out->data()) + start;
    uchar* cipherText = nonceOut + kNonceSize;
    std::memcpy(nonceOut, nonce.constData(), kNonceSize);

    int written = 0;
    int last = 0;
    const bool ok =
        d->start(nonceOut, 1, associated) &&
        EVP_EncryptUpdate(d->ctx, cipherText, &written, reinterpret_cast<const uchar*>(data),
                          int(size)) == 1 &&
        EVP_EncryptFinal_ex(d->ctx, cipherText + written, &last) == 1 &&
        written + last == int(size) &&
        EVP_CIPHER_CTX_ctrl(d->ctx, EVP_CTRL_GCM_GET_TAG, kTagSize, cipherText + size) == 1;
    if (!ok)
        out->truncate(start);
    return ok;
}

bool Cipher::open(const char* data, std::size_t size, QByteArray* out, const QByteArray& associated)
{
    // The input may live in *out itself, so *out changes only at the end.
    QByteArray result;
    bool ok = d->valid && size >= std::size_t(kOverhead) && size - kOverhead <= kMaxPlain;
    if (ok) {
        const auto* nonce = reinterpret_cast<const uchar*>(data);
        const uchar* cipherText = nonce + kNonceSize;
        const int plainSize = int(size - kOverhead);
        uchar tag[kTagSize];
        std::memcpy(tag, cipherText + plainSize, kTagSize);

        result.resize(plainSize);
        auto* plain = reinterpret_cast<uchar*>(result.data());
        int written = 0;
        int last = 0;
        ok = d->start(nonce, 0, associated) &&
             EVP_DecryptUpdate(d->ctx, plain, &written, cipherText, plainSize) == 1 &&
             EVP_CIPHER_CTX_ctrl(d->ctx, EVP_CTRL_GCM_SET_TAG, kTagSize, tag) == 1 &&
             EVP_DecryptFinal_ex(d->ctx, plain + written, &last) == 1 &&
             written + last == plainSize;
    }
    // Plain text that failed authentication must not reach the caller.
    if (!ok)
        result.clear();
    out->swap(result);
    return ok;
}

QByteArray deriveKey(const QByteArray& password, const QByteArray& salt,
                     const ScryptParameters& parameters, int length)
{
    const quint64 n = parameters.n;
    const quint64 r = parameters.r;
    const quint64 p = parameters.p;
    if (length <= 0 || n < 2 || (n & (n - 1)) != 0 || r == 0 || p == 0)
        return QByteArray();
    // The library refuses to use more memory than it is allowed; allow what
    // these parameters need (128 * r * (n + p + 2) bytes) and a margin, and
    // refuse parameters whose needs do not even fit in 64 bits.
    const unsigned __int128 needed = static_cast<unsigned __int128>(128) * r * (n + p + 2);
    if (needed > std::numeric_limits<quint64>::max() / 2)
        return QByteArray();
    const quint64 maxMemory = quint64(needed) + 1024 * 1024;

    QByteArray key(length, Qt::Uninitialized);
    if (EVP_PBE_scrypt(password.constData(), std::size_t(password.size()),
                       reinterpret_cast<const uchar*>(salt.constData()), std::size_t(salt.size()),
                       n, r, p, maxMemory, reinterpret_cast<uchar*>(key.data()),
                       std::size_t(length)) != 1)
        return QByteArray();
    return key;
}

} // namespace Kel::Streams
