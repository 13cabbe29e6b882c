// The descriptors of one select call.
#ifndef NET_SELECT_SET_H
#define NET_SELECT_SET_H

#include <sys/select.h>

namespace vexo {

class SelectSet {
public:
    SelectSet();

    // Adds a descriptor to those that are waited for. One that has no place in the set, being
    // negative or FD_SETSIZE and above, is refused like one that is not open: false, and EBADF in
    // errno.
    [[nodiscard]] bool watch_reading(int fd);
    [[nodiscard]] bool watch_writing(int fd);

    // One select call. It leaves in `limit` (null: none) what remains of the time. A million
    // microseconds and more, which some systems accept and others do not, are refused. Returns the
    // number of ready descriptors, one that is readable and writable counted twice; 0 when the
    // time is over; or -1.
    int wait(timeval* limit);

    // The same, but a signal handler does not end the wait, nor does it prolong it.
    int wait_through_signals(timeval* limit);

    // After a wait that returned more than 0; `fd` must be one that is waited for.
    bool readable(int fd) const { return FD_ISSET(fd, &readable_); }
    bool writable(int fd) const { return FD_ISSET(fd, &writable_); }

private:
    bool watch(int fd, fd_set& set);

    fd_set watched_for_reading_;
    fd_set watched_for_writing_;
    fd_set readable_;
    fd_set writable_;
    int highest_ = 0;
};

// Waits through signals until `fd` is readable, with the results of SelectSet::wait.
int wait_readable(int fd, timeval* limit);

}  // namespace vexo

#endif
