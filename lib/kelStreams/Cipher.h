#pragma once

#include <QByteArray>
#include <memory>

namespace Kel::Streams {

// Authenticated encryption with AES-GCM under a 16, 24 or 32 byte key
// (AES-128, -192, -256). A sealed message is a fresh random 12-byte nonce,
// the ciphertext, and the 16-byte tag; associated data, when given, is
// authenticated but not stored. One object per thread.
class Cipher
{
public:
    static constexpr int kNonceSize = 12;
    static constexpr int kTagSize = 16;
    static constexpr int kOverhead = kNonceSize + kTagSize;

    // Any other key length makes isValid() false and every call fail.
    explicit Cipher(const QByteArray& key);
    ~Cipher();
    Cipher(const Cipher&) = delete;
    Cipher& operator=(const Cipher&) = delete;

    bool isValid() const;

    // Appends the sealed form of size bytes to *out.
    bool seal(const char* data, std::size_t size, QByteArray* out,
              const QByteArray& associated = QByteArray());
    // Replaces *out with the plain text; false when the message was not sealed
    // under this key and associated data, or was changed in any byte.
    bool open(const char* data, std::size_t size, QByteArray* out,
              const QByteArray& associated = QByteArray());

private:
    struct State;
    std::unique_ptr<State> d;
};

// scrypt (memory-hard) key derivation. Parameters travel with the stored key
// file so that they can be raised later without breaking old data. Empty on
// invalid parameters.
//
// The default costs as much time as n = 2^15, p = 1 (a guess costs 2^15 block
// mixes of 1 KiB, about 0.1 s here) in a quarter of the memory, 8 MiB: a
// derivation that runs beside a backup's first blobs must not double the
// run's peak memory. Four lanes of 8 MiB are at least as strong as one of
// 32 MiB by the usual equivalence tables for scrypt.
struct ScryptParameters
{
    quint64 n = 1 << 13;
    quint32 r = 8;
    quint32 p = 4;
};
QByteArray deriveKey(const QByteArray& password, const QByteArray& salt,
                     const ScryptParameters& parameters, int length);

} // namespace Kel::Streams
