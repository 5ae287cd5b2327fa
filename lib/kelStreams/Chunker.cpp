#include "Chunker.h"

#include <algorithm>

namespace Kel::Streams {

namespace {

// splitmix64: a well-mixed 64-bit value for every table slot from one seed.
quint64 splitmix64(quint64 x)
{
    x += 0x9E3779B97F4A7C15ull;
    x = (x ^ (x >> 30)) * 0xBF58476D1CE4E5B9ull;
    x = (x ^ (x >> 27)) * 0x94D049BB133111EBull;
    return x ^ (x >> 31);
}

// The gear hash shifts left once per byte, so its top bits depend on the last
// 64 bytes only: testing top bits gives a 64-byte window, and a cut depends on
// nothing but the bytes just before it. Two bits harder than the average
// (1 MiB = 2^20) before kAverageSize and two easier after it keep most chunk
// sizes close to the average.
constexpr int kWindow = 64;
constexpr quint64 topBits(int bits)
{
    return ~0ull << (64 - bits);
}
constexpr quint64 kMaskBefore = topBits(22);
constexpr quint64 kMaskAfter = topBits(18);

static_assert(Chunker::kMinSize >= kWindow && Chunker::kMinSize < Chunker::kAverageSize &&
                  Chunker::kAverageSize < Chunker::kMaxSize,
              "chunk size bounds out of order");

} // namespace

Chunker::Chunker(quint64 seed)
{
    for (std::size_t i = 0; i < m_gear.size(); ++i)
        m_gear[i] = splitmix64(seed + i);
}

std::size_t Chunker::cut(const uchar* data, std::size_t size) const
{
    const std::size_t n = std::min(size, kMaxSize);
    if (n <= kMinSize)
        return n;

    // Nothing before kMinSize can be a cut, so only the last window before it
    // is hashed: the state is then the same as if hashing had started at 0.
    const quint64* gear = m_gear.data();
    quint64 h = 0;
    std::size_t i = kMinSize - kWindow;
    for (; i < kMinSize; ++i)
        h = (h << 1) + gear[data[i]];

    const std::size_t normal = std::min(n, kAverageSize);
    for (; i < normal; ++i) {
        h = (h << 1) + gear[data[i]];
        if (!(h & kMaskBefore))
            return i + 1;
    }
    for (; i < n; ++i) {
        h = (h << 1) + gear[data[i]];
        if (!(h & kMaskAfter))
            return i + 1;
    }
    return n;
}

} // namespace Kel::Streams
