#include "Hash.h"

#include <cstdlib>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/rand.h>

namespace Kel::Streams {

namespace {

// Failures here mean a broken crypto library or no memory; an id that is
// silently wrong would corrupt a repository, so stop instead.
void check(bool ok, const char* what)
{
    if (!ok)
        qFatal("kelStreams: %s failed", what);
}

} // namespace

// Contexts are set up once: an explicit fetch and a context that is only
// re-initialised keep per-chunk hashing free of allocations and lookups. HMAC
// re-initialised without a key keeps the key it was given.
struct IdHasher::State
{
    EVP_MD* md = nullptr;
    EVP_MD_CTX* mdCtx = nullptr;
    EVP_MAC* mac = nullptr;
    EVP_MAC_CTX* macCtx = nullptr;

    ~State()
    {
        EVP_MAC_CTX_free(macCtx);
        EVP_MAC_free(mac);
        EVP_MD_CTX_free(mdCtx);
        EVP_MD_free(md);
    }
};

IdHasher::IdHasher(const QByteArray& key) : d(new State)
{
    if (key.isEmpty()) {
        d->md = EVP_MD_fetch(nullptr, "SHA256", nullptr);
        d->mdCtx = EVP_MD_CTX_new();
        check(d->md && d->mdCtx, "SHA-256 setup");
        return;
    }
    d->mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    check(d->mac, "HMAC fetch");
    d->macCtx = EVP_MAC_CTX_new(d->mac);
    check(d->macCtx, "HMAC context");
    char digest[] = "SHA256";
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digest, 0),
        OSSL_PARAM_construct_end(),
    };
    check(EVP_MAC_init(d->macCtx, reinterpret_cast<const uchar*>(key.constData()),
                       std::size_t(key.size()), params) == 1,
          "HMAC key");
}

IdHasher::~IdHasher() = default;

QByteArray IdHasher::id(const char* data, std::size_t size)
{
    QByteArray out(kSize, Qt::Uninitialized);
    auto* md = reinterpret_cast<uchar*>(out.data());
    if (d->mdCtx) {
        check(EVP_DigestInit_ex(d->mdCtx, d->md, nullptr) == 1 &&
                  EVP_DigestUpdate(d->mdCtx, data, size) == 1 &&
                  EVP_DigestFinal_ex(d->mdCtx, md, nullptr) == 1,
              "SHA-256");
        return out;
    }
    std::size_t length = 0;
    check(EVP_MAC_init(d->macCtx, nullptr, 0, nullptr) == 1 &&
              EVP_MAC_update(d->macCtx, reinterpret_cast<const uchar*>(data), size) == 1 &&
              EVP_MAC_final(d->macCtx, md, &length, kSize) == 1 && length == kSize,
          "HMAC-SHA-256");
    return out;
}

QByteArray sha256(const char* data, std::size_t size)
{
    QByteArray out(IdHasher::kSize, Qt::Uninitialized);
    check(EVP_Digest(data, size, reinterpret_cast<uchar*>(out.data()), nullptr, EVP_sha256(),
                     nullptr) == 1,
          "SHA-256");
    return out;
}

QByteArray randomBytes(int size)
{
    if (size <= 0)
        return QByteArray();
    QByteArray out(size, Qt::Uninitialized);
    if (RAND_bytes(reinterpret_cast<uchar*>(out.data()), size) != 1) {
        qCritical("kelStreams: the system's random generator failed");
        std::abort();
    }
    return out;
}

} // namespace Kel::Streams
