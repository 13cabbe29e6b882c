#include "net/select_set.h"

#include <algorithm>
#include <cerrno>

#include "base/retry.h"

namespace vexo {

SelectSet::SelectSet() {
    FD_ZERO(&watched_for_reading_);
    FD_ZERO(&watched_for_writing_);
}

bool SelectSet::watch_reading(int fd) {
    return watch(fd, watched_for_reading_);
}

bool SelectSet::watch_writing(int fd) {
    return watch(fd, watched_for_writing_);
}

bool SelectSet::watch(int fd, fd_set& set) {
    if (fd < 0 || fd >= FD_SETSIZE) {
        errno = EBADF;
        return false;
    }
    FD_SET(fd, &set);
    highest_ = std::max(highest_, fd);
    return true;
}

int SelectSet::wait(timeval* limit) {
    if (limit != nullptr && limit->tv_usec >= 1'000'000) {
        errno = EINVAL;
        return -1;
    }
    readable_ = watched_for_reading_;
    writable_ = watched_for_writing_;
    return select(highest_ + 1, &readable_, &writable_, nullptr, limit);
}

int SelectSet::wait_through_signals(timeval* limit) {
    return retry_interrupted([&] { return wait(limit); });
}

int wait_readable(int fd, timeval* limit) {
    SelectSet set;
    return set.watch_reading(fd) ? set.wait_through_signals(limit) : -1;
}

}  // namespace vexo
