#pragma once

#include <QtGlobal>
#include <chrono>
#include <mutex>

namespace Kel::Streams {

// A token bucket shared by the threads of one run: each caller asks for the
// bytes it is about to send and is held back until the rate allows them. A
// rate of zero or less means no limit. Bursts are at most one second's worth.
class BandwidthLimiter
{
public:
    explicit BandwidthLimiter(qint64 bytesPerSecond = 0);

    void setRate(qint64 bytesPerSecond);
    qint64 rate() const;

    // Blocks until size bytes may pass (returns at once without a limit).
    void acquire(qint64 size);

private:
    using Clock = std::chrono::steady_clock;
    mutable std::mutex m_mutex;
    qint64 m_rate;
    double m_tokens;
    Clock::time_point m_last;
};

} // namespace Kel::Streams
