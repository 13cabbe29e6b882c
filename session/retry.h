// When the next attempt to connect is due.
#ifndef SESSION_RETRY_H
#define SESSION_RETRY_H

#include <algorithm>

#include "session/time.h"

namespace vexo::session {

// Every 50 ms at first, so that a controller that comes back is found at once. After ten seconds
// less and less often: it was switched off.
class Retry {
public:
    // An attempt begins.
    void attempt(Nanoseconds now) {
        at_ = now;
        interval_ = now - down_since_ < kKeenFor
                        ? kFirstInterval
                        : std::min(interval_ + interval_ / 2, kLongestInterval);
    }
    // A session that stood was cut.
    void cut(Nanoseconds now) {
        down_since_ = now;
        interval_ = kFirstInterval;
    }

    bool attempted() const { return at_ != 0; }
    Nanoseconds next() const { return at_ + interval_; }
    // How long the present attempt may take, when the application allows `least`.
    Nanoseconds limit(Nanoseconds least) const { return at_ + std::max(least, interval_); }
    // Since the cut, or the beginning.
    Nanoseconds down(Nanoseconds now) const { return now - down_since_; }

private:
    static constexpr Nanoseconds kFirstInterval = 50 * kMillisecond;
    static constexpr Nanoseconds kLongestInterval = kSecond;
    static constexpr Nanoseconds kKeenFor = 10 * kSecond;

    Nanoseconds at_ = 0;
    Nanoseconds interval_ = 0;
    Nanoseconds down_since_ = monotonic_ns();
};

}  // namespace vexo::session

#endif
