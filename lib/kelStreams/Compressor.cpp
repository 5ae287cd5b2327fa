#include "Compressor.h"

#include <cstring>
#include <limits>
#include <vector>
#include <zstd.h>

namespace Kel::Streams {

namespace {

// Above this size a sample is compressed first: three slices from the start,
// the middle and the end, so that one odd header or trailer does not decide.
constexpr std::size_t kSampleThreshold = 64 * 1024;
constexpr std::size_t kSliceSize = 4 * 1024;
constexpr std::size_t kSampleSize = 3 * kSliceSize;

// The largest output worth keeping: at least 1/32 smaller than the input.
std::size_t worthwhile(std::size_t size)
{
    return size - (size + 31) / 32;
}

// QByteArray sizes are ints in Qt 5.
constexpr std::size_t kMaxBytes = std::size_t(std::numeric_limits<int>::max()) - 64;

struct DCtxDeleter
{
    void operator()(ZSTD_DCtx* ctx) const { ZSTD_freeDCtx(ctx); }
};

} // namespace

struct Compressor::State
{
    ZSTD_CCtx* ctx = nullptr;
    std::vector<char> buffer;
    ~State() { ZSTD_freeCCtx(ctx); }

    // Compressed size of data when it fits in limit bytes, else 0.
    std::size_t squeeze(const char* data, std::size_t size, std::size_t limit)
    {
        if (buffer.size() < limit)
            buffer.resize(limit);
        const std::size_t n = ZSTD_compress2(ctx, buffer.data(), limit, data, size);
        return ZSTD_isError(n) ? 0 : n;
    }
};

Compressor::Compressor(int level) : d(new State)
{
    d->ctx = ZSTD_createCCtx();
    if (!d->ctx)
        qFatal("kelStreams: cannot create a compression context");
    ZSTD_CCtx_setParameter(d->ctx, ZSTD_c_compressionLevel, level);
    // decompress() relies on the frame recording its size, and on the
    // checksum to tell damage that still decodes to the right size.
    ZSTD_CCtx_setParameter(d->ctx, ZSTD_c_contentSizeFlag, 1);
    ZSTD_CCtx_setParameter(d->ctx, ZSTD_c_checksumFlag, 1);
}

Compressor::~Compressor() = default;

bool Compressor::compress(const char* data, std::size_t size, QByteArray* out)
{
    // The input may live in *out itself, so *out changes only once it is read.
    std::size_t n = 0;
    const char* compressed = compressView(data, size, &n);
    *out = compressed ? QByteArray(compressed, int(n)) : QByteArray();
    return compressed != nullptr;
}

const char* Compressor::compressView(const char* data, std::size_t size,
                                     std::size_t* compressedSize)
{
    *compressedSize = 0;
    if (size == 0 || size > kMaxBytes) {
        return nullptr;
    }

    if (size > kSampleThreshold) {
        char sample[kSampleSize];
        const std::size_t middle = (size - kSliceSize) / 2;
        std::memcpy(sample, data, kSliceSize);
        std::memcpy(sample + kSliceSize, data + middle, kSliceSize);
        std::memcpy(sample + 2 * kSliceSize, data + size - kSliceSize, kSliceSize);
        if (!d->squeeze(sample, kSampleSize, worthwhile(kSampleSize))) {
            return nullptr;
        }
    }

    // Compressing into a buffer of the worthwhile size makes zstd itself stop
    // as soon as the result would be too large.
    *compressedSize = d->squeeze(data, size, worthwhile(size));
    return *compressedSize ? d->buffer.data() : nullptr;
}

bool decompress(const char* data, std::size_t size, std::size_t rawSize, QByteArray* out)
{
    thread_local std::unique_ptr<ZSTD_DCtx, DCtxDeleter> ctx(ZSTD_createDCtx());
    // The input may live in *out itself, so *out changes only at the end.
    QByteArray result;
    bool ok = ctx && rawSize <= kMaxBytes && ZSTD_getFrameContentSize(data, size) == rawSize;
    if (ok) {
        // The destination is exactly rawSize bytes: a frame that lies about
        // its size fails here instead of writing past the end.
        result.resize(int(rawSize));
        const std::size_t n = ZSTD_decompressDCtx(ctx.get(), result.data(), rawSize, data, size);
        ok = !ZSTD_isError(n) && n == rawSize;
    }
    if (!ok)
        result.clear();
    out->swap(result);
    return ok;
}

} // namespace Kel::Streams
