#include "tests/os/pretended_limits.h"

#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>

namespace test {

std::optional<rlimit> pretended_limits;
int limit_changes = 0;

}  // namespace test

using test::pretended_limits;

namespace {

template <typename... Arguments>
int system_call(long number, Arguments... arguments) {
    return static_cast<int>(syscall(number, arguments...));
}

}  // namespace

extern "C" int sched_setscheduler(pid_t thread, int policy, const sched_param* parameter) noexcept {
    if (!pretended_limits) {
        return system_call(SYS_sched_setscheduler, thread, policy, parameter);
    }
    if (static_cast<rlim_t>(parameter->sched_priority) > pretended_limits->rlim_cur) {
        errno = EPERM;
        return -1;
    }
    return 0;
}

extern "C" int getrlimit(__rlimit_resource_t resource, rlimit* limit) noexcept {
    if (!pretended_limits) {
        return system_call(SYS_getrlimit, resource, limit);
    }
    *limit = *pretended_limits;
    return 0;
}

extern "C" int setrlimit(__rlimit_resource_t resource, const rlimit* limit) noexcept {
    if (!pretended_limits) {
        return system_call(SYS_setrlimit, resource, limit);
    }
    ++test::limit_changes;
    pretended_limits = *limit;
    return 0;
}
