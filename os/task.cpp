#include "os/task.h"

#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <cerrno>

#include "base/thread.h"
#include "os/tables.h"

namespace {

constexpr int kNothingToRaise = -1;

// Lifts the soft limit of real-time priorities to the one asked for, as far as the hard limit goes.
// Returns 0, an error number, or kNothingToRaise when the limit was not what stood in the way or
// can't be moved far enough.
int raise_soft_priority_limit(int policy, const sched_param& parameter) {
    const int highest = sched_get_priority_max(policy);
    rlimit limit{};
    if (highest < 0 || getrlimit(RLIMIT_RTPRIO, &limit) != 0) {
        return errno;
    }
    const auto bounded = [highest](rlim_t value) {
        return value == RLIM_INFINITY ? static_cast<rlim_t>(highest) : value;
    };
    const auto wanted = static_cast<rlim_t>(std::max(parameter.sched_priority, 0));
    if (wanted <= bounded(limit.rlim_cur) || wanted > bounded(limit.rlim_max)) {
        return kNothingToRaise;
    }
    limit.rlim_cur = wanted;
    return setrlimit(RLIMIT_RTPRIO, &limit) == 0 ? 0 : errno;
}

// Returns 0 or the error number.
int set_scheduler(pid_t thread, int policy, const sched_param& parameter) {
    while (sched_setscheduler(thread, policy, &parameter) != 0) {
        const int error = errno;
        if (error != EPERM || raise_soft_priority_limit(policy, parameter) != 0) {
            return error;
        }
    }
    return 0;
}

}  // namespace

int32_t pthread_create_task(void* (*entry)(void* arg), void* arg, uint32_t stack_size) {
    const uint32_t stack = std::max<uint32_t>(stack_size, PTHREAD_TASK_STACK_MIN);
    pthread_t thread{};
    if (!vexo::start_thread(thread, {stack, SCHED_OTHER, 0}, entry, arg)) {
        return -1;
    }
    pthread_detach(thread);
    return 0;
}

int32_t pthread_set_taskaffinity(int8_t cpu, const char* name) {
    if (cpu >= 0) {
        cpu_set_t cpus;
        CPU_ZERO(&cpus);
        CPU_SET(static_cast<unsigned>(cpu), &cpus);
        // Refusals are positive error numbers: by contract they pass unnoticed.
        // NOLINTNEXTLINE(bugprone-posix-return)
        if (pthread_setaffinity_np(pthread_self(), sizeof cpus, &cpus) == -1) {
            return -1;
        }
    }
    if (name[0] != '\0') {
        pthread_setname_np(pthread_self(), name);
    }
    return 0;
}

int32_t pthread_set_param(int32_t priority, uint32_t policy_selector) {
    constexpr pid_t kCallingThread = 0;
    sched_param parameter{};
    parameter.sched_priority = priority;
    const int policy = policy_selector == PTHREAD_POLICY_FIFO ? SCHED_FIFO : SCHED_OTHER;
    return set_scheduler(kCallingThread, policy, parameter) == 0 ? 0 : -1;
}
