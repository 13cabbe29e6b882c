#include "net/select.h"

#include <cerrno>
#include <span>

#include "net/out.h"
#include "net/select_set.h"

namespace {

// The time goes into the microseconds alone, so that a million and more are refused.
timeval microseconds(unsigned int timeout_us) {
    return {.tv_sec = 0, .tv_usec = static_cast<suseconds_t>(timeout_us)};
}

bool watch_reading(vexo::SelectSet& set, std::span<const int> fds) {
    for (const int fd : fds) {
        if (!set.watch_reading(fd)) {
            return false;
        }
    }
    return true;
}

}  // namespace

int sys_generic_select(int fd, unsigned int timeout_us, uint32_t* events) {
    vexo::store(events, 0);
    timeval limit = microseconds(timeout_us);
    vexo::SelectSet set;
    if (!set.watch_reading(fd) || !set.watch_writing(fd)) {
        return -1;
    }
    const int ready = set.wait_through_signals(&limit);
    if (ready > 0) {
        vexo::store(events, (set.readable(fd) ? SYS_GENERIC_SELECT_READABLE : 0) |
                                (set.writable(fd) ? SYS_GENERIC_SELECT_WRITABLE : 0));
    }
    return ready;
}

int sys_generic_select_multiread(const int* fds, unsigned int count, unsigned int timeout_us,
                                 uint32_t* ready) {
    if (fds == nullptr && count > 0) {
        errno = EINVAL;
        return -1;
    }
    timeval limit = microseconds(timeout_us);
    vexo::SelectSet set;
    if (!watch_reading(set, {fds, count})) {
        return -1;
    }
    const int number = set.wait_through_signals(&limit);
    for (unsigned int i = 0; number > 0 && ready != nullptr && i < count; ++i) {
        if (set.readable(fds[i])) {
            ready[i] = 1;
        }
    }
    return number;
}
