#include "BandwidthLimiter.h"

#include <algorithm>
#include <thread>

namespace Kel::Streams {

// Callers reserve their bytes at once, driving the bucket into debt when it
// holds too little, and then sleep until the debt they leave is paid off. So
// requests are served in the order they arrive, a request larger than the
// bucket waits its share instead of waiting forever for a bucket that can
// never hold it, and nobody holds the lock while sleeping.
//
// The bucket starts empty: a run gets no burst credit it did not wait for.

BandwidthLimiter::BandwidthLimiter(qint64 bytesPerSecond)
    : m_rate(std::max<qint64>(bytesPerSecond, 0)), m_tokens(0), m_last(Clock::now())
{
}

void BandwidthLimiter::setRate(qint64 bytesPerSecond)
{
    std::lock_guard<std::mutex> lock(m_mutex);
    const Clock::time_point now = Clock::now();
    if (m_rate > 0) {
        const double elapsed = std::chrono::duration<double>(now - m_last).count();
        m_tokens = std::min(double(m_rate), m_tokens + elapsed * double(m_rate));
    } else {
        m_tokens = 0;
    }
    m_last = now;
    m_rate = std::max<qint64>(bytesPerSecond, 0);
    m_tokens = std::min(m_tokens, double(m_rate));
}

qint64 BandwidthLimiter::rate() const
{
    std::lock_guard<std::mutex> lock(m_mutex);
    return m_rate;
}

void BandwidthLimiter::acquire(qint64 size)
{
    if (size <= 0)
        return;
    double wait = 0;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_rate <= 0)
            return;
        const Clock::time_point now = Clock::now();
        const double rate = double(m_rate);
        const double elapsed = std::chrono::duration<double>(now - m_last).count();
        m_last = now;
        m_tokens = std::min(rate, m_tokens + elapsed * rate) - double(size);
        if (m_tokens < 0)
            wait = -m_tokens / rate;
    }
    if (wait > 0)
        std::this_thread::sleep_for(std::chrono::duration<double>(wait));
}

} // namespace Kel::Streams
