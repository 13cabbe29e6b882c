// Waiting for descriptors, of any number, with the answers of select.
#ifndef NET_WAIT_H
#define NET_WAIT_H

#include <poll.h>
#include <sys/time.h>

#include <span>

namespace vexo {

// One wait until a descriptor has one of its events, POLLIN (readable) and POLLOUT (writable), at
// most for `limit` (null: for ever; more than 999,999 microseconds carry over). `revents` then
// tells which of them. Returns how many there are, one that is readable and writable counted twice;
// 0 when the time is over; -1 with EBADF for a descriptor that is negative or not open, EINVAL for
// a negative time, EINTR when a signal handler ran.
int wait_for_events(std::span<pollfd> watched, const timeval* limit);

// The same, but a signal handler does not end the wait, nor does it prolong it, and what remains of
// the time is left in `limit`.
int wait_through_signals(std::span<pollfd> watched, timeval* limit);

int wait_readable(int fd, timeval* limit);  // through signals

}  // namespace vexo

#endif
