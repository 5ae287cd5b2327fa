#pragma once

#include <QByteArray>
#include <memory>

namespace Kel::Streams {

// The identity of a stored piece of data: 32 bytes of SHA-256, or of
// HMAC-SHA-256 under a repository secret when the repository encrypts (so that
// stored ids confirm nothing about anyone's content). One object per thread.
class IdHasher
{
public:
    static constexpr int kSize = 32;

    // An empty key gives plain SHA-256.
    explicit IdHasher(const QByteArray& key = QByteArray());
    ~IdHasher();
    IdHasher(const IdHasher&) = delete;
    IdHasher& operator=(const IdHasher&) = delete;

    QByteArray id(const char* data, std::size_t size);
    QByteArray id(const QByteArray& data) { return id(data.constData(), std::size_t(data.size())); }

private:
    struct State;
    std::unique_ptr<State> d;
};

// Plain SHA-256 of data (32 bytes), for checksums of whole objects.
QByteArray sha256(const char* data, std::size_t size);
inline QByteArray sha256(const QByteArray& data)
{
    return sha256(data.constData(), std::size_t(data.size()));
}

// Cryptographically strong random bytes; aborts the process when the system's
// generator fails (nothing that follows would be safe).
QByteArray randomBytes(int size);

} // namespace Kel::Streams
