#pragma once

#include <QByteArray>
#include <memory>

namespace Kel::Streams {

// zstd compression with a reused context. One object per thread.
class Compressor
{
public:
    explicit Compressor(int level = 1);
    ~Compressor();
    Compressor(const Compressor&) = delete;
    Compressor& operator=(const Compressor&) = delete;

    // Compresses size bytes into *out. Returns false, leaving *out empty, when
    // the result would not be at least 1/32 smaller than the input: such data
    // is stored as it is. Data that does not compress is recognised cheaply
    // (a sample is tried first) so that random data costs little.
    bool compress(const char* data, std::size_t size, QByteArray* out);
    // The same without a copy: the compressed bytes stay in the compressor's
    // own buffer, valid until the next call; null when not worth it.
    const char* compressView(const char* data, std::size_t size, std::size_t* compressedSize);

private:
    struct State;
    std::unique_ptr<State> d;
};

// Restores exactly rawSize bytes from a compressed frame; false when the
// frame is damaged or does not decompress to exactly rawSize bytes.
bool decompress(const char* data, std::size_t size, std::size_t rawSize, QByteArray* out);

} // namespace Kel::Streams
