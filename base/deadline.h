// Points in time as normalised timespecs.
#ifndef BASE_DEADLINE_H
#define BASE_DEADLINE_H

#include <cstdint>
#include <ctime>
#include <optional>

namespace vexo {

constexpr int64_t kNanosecondsPerSecond = 1'000'000'000;
constexpr uint64_t kNanosecondsPerMicrosecond = 1'000;
constexpr uint64_t kNanosecondsPerMillisecond = 1'000'000;

constexpr timespec plus(timespec time, uint64_t span_ns) {
    const int64_t nanoseconds = time.tv_nsec + static_cast<int64_t>(span_ns);
    return {time.tv_sec + nanoseconds / kNanosecondsPerSecond, nanoseconds % kNanosecondsPerSecond};
}

constexpr bool later(const timespec& a, const timespec& b) {
    return a.tv_sec != b.tv_sec ? a.tv_sec > b.tv_sec : a.tv_nsec > b.tv_nsec;
}

inline timespec monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// Empty stands for "never".
using Deadline = std::optional<timespec>;

// A span of 0 never ends.
inline Deadline monotonic_deadline(uint64_t span_ns) {
    return span_ns == 0 ? Deadline() : Deadline(plus(monotonic_now(), span_ns));
}

}  // namespace vexo

#endif
