#pragma once

#include <QtGlobal>
#include <array>
#include <cstddef>

namespace Kel::Streams {

// Content-defined chunking with a gear rolling hash and normalised cut masks:
// the same bytes cut at the same places wherever they sit in a file, so an
// insertion early in a file changes only the chunks around it. The gear table
// comes from a seed; a repository that encrypts keeps its seed secret, so that
// chunk sizes say nothing about content.
class Chunker
{
public:
    static constexpr std::size_t kMinSize = 512 * 1024;
    static constexpr std::size_t kAverageSize = 1024 * 1024;
    static constexpr std::size_t kMaxSize = 8 * 1024 * 1024;

    explicit Chunker(quint64 seed = 0);

    // The length of the next chunk at the start of data: a cut point between
    // kMinSize and kMaxSize, or, when none lies within size bytes, size itself
    // (capped at kMaxSize). The caller passes at least kMaxSize bytes unless
    // the stream ends sooner, and then takes what is returned as the final
    // chunk only when it is the whole rest.
    std::size_t cut(const uchar* data, std::size_t size) const;

private:
    std::array<quint64, 256> m_gear;
};

} // namespace Kel::Streams
