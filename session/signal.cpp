#include "session/signal.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <climits>

namespace vexo::session {

void Signal::wake_all() const {
    syscall(SYS_futex, &count_, FUTEX_WAKE_PRIVATE, INT_MAX, nullptr, nullptr, 0);
}

void Signal::sleep(uint32_t seen, Nanoseconds deadline) const {
    const timespec until = to_timespec(deadline);
    syscall(SYS_futex, &count_, FUTEX_WAIT_BITSET_PRIVATE, seen, &until, nullptr,
            FUTEX_BITSET_MATCH_ANY);
}

}  // namespace vexo::session
