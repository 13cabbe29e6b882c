#include "net/wait.h"

#include <algorithm>
#include <cerrno>
#include <limits>

#include "base/deadline.h"
#include "base/retry.h"

namespace vexo {

namespace {

constexpr suseconds_t kMicrosecondsPerSecond = 1'000'000;

int fail_with(int cause) {
    errno = cause;
    return -1;
}

// Leaves what select would say of the descriptor. Returns how many.
int take_events(pollfd& polled) {
    const int readable = polled.revents & (POLLIN | POLLHUP | POLLERR) ? POLLIN : 0;
    const int writable = polled.revents & (POLLOUT | POLLERR) ? POLLOUT : 0;
    polled.revents = static_cast<short>((readable | writable) & polled.events);
    return (polled.revents & POLLIN ? 1 : 0) + (polled.revents & POLLOUT ? 1 : 0);
}

timespec time_of(const timeval& limit) {
    constexpr time_t kLongest = std::numeric_limits<time_t>::max() / 2;
    return {std::min(limit.tv_sec, kLongest) + limit.tv_usec / kMicrosecondsPerSecond,
            limit.tv_usec % kMicrosecondsPerSecond * 1000};
}

// What is left of `limit` now, when it began at `start`.
timeval rest_of(const timeval& limit, const timespec& start) {
    const timespec whole = time_of(limit);
    const timespec now = monotonic_now();
    timespec rest{whole.tv_sec - (now.tv_sec - start.tv_sec),
                  whole.tv_nsec - (now.tv_nsec - start.tv_nsec)};
    if (rest.tv_nsec < 0) {
        rest = {rest.tv_sec - 1, rest.tv_nsec + kNanosecondsPerSecond};
    }
    rest = plus({rest.tv_sec, 0}, static_cast<uint64_t>(rest.tv_nsec));
    return rest.tv_sec < 0 ? timeval{} : timeval{rest.tv_sec, rest.tv_nsec / 1000};
}

}  // namespace

int wait_for_events(std::span<pollfd> watched, const timeval* limit) {
    if (std::ranges::any_of(watched, [](const pollfd& polled) { return polled.fd < 0; })) {
        return fail_with(EBADF);
    }
    if (limit != nullptr && (limit->tv_sec < 0 || limit->tv_usec < 0)) {
        return fail_with(EINVAL);
    }
    const timespec time = limit == nullptr ? timespec{} : time_of(*limit);
    const int polled =
        ppoll(watched.data(), watched.size(), limit == nullptr ? nullptr : &time, nullptr);
    if (polled <= 0) {
        return polled;
    }
    int events = 0;
    for (pollfd& one : watched) {
        if ((one.revents & POLLNVAL) != 0) {
            return fail_with(EBADF);
        }
        events += take_events(one);
    }
    return events;
}

int wait_through_signals(std::span<pollfd> watched, timeval* limit) {
    return retry_interrupted([&] {
        const timespec start = monotonic_now();
        const int result = wait_for_events(watched, limit);
        if (limit != nullptr && (result >= 0 || errno != EINVAL)) {
            *limit = rest_of(*limit, start);
        }
        return result;
    });
}

int wait_readable(int fd, timeval* limit) {
    pollfd watched{fd, POLLIN, 0};
    return wait_through_signals({&watched, 1}, limit);
}

}  // namespace vexo
