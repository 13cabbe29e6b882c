#include "net/select.h"

#include <algorithm>
#include <cerrno>
#include <memory>
#include <new>

#include "net/out.h"
#include "net/wait.h"

namespace {

constexpr unsigned int kOneSecondUs = 1'000'000;

int fail_with(int cause) {
    errno = cause;
    return -1;
}

// The descriptors of one wait, each of them once and in order. Those of an application's cycle have
// room here; more are allocated.
class ReadList {
public:
    // Returns whether there was room.
    bool take(std::span<const int> fds) {
        if (fds.size() > std::size(few_)) {
            many_.reset(new (std::nothrow) pollfd[fds.size()]);
        }
        pollfd* const first = fds.size() > std::size(few_) ? many_.get() : few_;
        if (first == nullptr) {
            return false;
        }
        pollfd* last = first;
        for (const int fd : fds) {
            *last++ = {fd, POLLIN, 0};
        }
        std::ranges::sort(first, last, {}, &pollfd::fd);
        last = std::unique(first, last, [](pollfd a, pollfd b) { return a.fd == b.fd; });
        list_ = {first, last};
        return true;
    }

    std::span<pollfd> get() const { return list_; }
    bool readable(int fd) const {
        return std::ranges::lower_bound(list_, fd, {}, &pollfd::fd)->revents != 0;
    }

private:
    pollfd few_[64];
    std::unique_ptr<pollfd[]> many_;
    std::span<pollfd> list_;
};

}  // namespace

int sys_generic_select(int fd, unsigned int timeout_us, uint32_t* events) {
    vexo::store(events, 0);
    if (timeout_us >= kOneSecondUs) {
        return fail_with(EINVAL);
    }
    timeval limit{.tv_sec = 0, .tv_usec = timeout_us};
    pollfd watched{fd, POLLIN | POLLOUT, 0};
    const int ready = vexo::wait_through_signals({&watched, 1}, &limit);
    if (ready > 0) {
        vexo::store(events, (watched.revents & POLLIN ? SYS_GENERIC_SELECT_READABLE : 0) |
                                (watched.revents & POLLOUT ? SYS_GENERIC_SELECT_WRITABLE : 0));
    }
    return ready;
}

int sys_generic_select_multiread(const int* fds, unsigned int count, unsigned int timeout_us,
                                 uint32_t* ready) {
    if (timeout_us >= kOneSecondUs || (fds == nullptr && count > 0)) {
        return fail_with(EINVAL);
    }
    ReadList list;
    if (!list.take({fds, count})) {
        return fail_with(ENOMEM);
    }
    timeval limit{.tv_sec = 0, .tv_usec = timeout_us};
    const int number = vexo::wait_through_signals(list.get(), &limit);
    for (unsigned int i = 0; number > 0 && ready != nullptr && i < count; ++i) {
        if (list.readable(fds[i])) {
            ready[i] = 1;
        }
    }
    return number;
}
