// Nanoseconds of the two clocks.
#ifndef SESSION_TIME_H
#define SESSION_TIME_H

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <limits>

namespace vexo::session {

using Nanoseconds = int64_t;

inline constexpr Nanoseconds kMicrosecond = 1'000;
inline constexpr Nanoseconds kMillisecond = 1'000'000;
inline constexpr Nanoseconds kSecond = 1'000'000'000;
inline constexpr Nanoseconds kNever = std::numeric_limits<Nanoseconds>::max();

constexpr Nanoseconds nanoseconds(const timespec& time) {
    return time.tv_sec * kSecond + time.tv_nsec;
}

constexpr timespec to_timespec(Nanoseconds time) {
    return {time / kSecond, time % kSecond};
}

inline Nanoseconds clock_ns(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return nanoseconds(now);
}

inline Nanoseconds monotonic_ns() {
    return clock_ns(CLOCK_MONOTONIC);
}

inline Nanoseconds realtime_ns() {
    return clock_ns(CLOCK_REALTIME);
}

// When a call that may take so many microseconds has to end; a thousand years are as good as never.
inline Nanoseconds deadline_after(int64_t limit_us) {
    constexpr int64_t kLongest = kNever / 2 / kMicrosecond;
    return monotonic_ns() + std::clamp<int64_t>(limit_us, 0, kLongest) * kMicrosecond;
}

}  // namespace vexo::session

#endif
