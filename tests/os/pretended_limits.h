// The kernel's rule for the real-time priorities of unprivileged processes, played through where
// the limits of the machine are fixed: the library finds the system calls of this file before those
// of the C library.
#ifndef TESTS_OS_PRETENDED_LIMITS_H
#define TESTS_OS_PRETENDED_LIMITS_H

#include <sys/resource.h>

#include <optional>

namespace test {

// RLIMIT_RTPRIO as sched_setscheduler, getrlimit and setrlimit go by; empty for the kernel's own.
extern std::optional<rlimit> pretended_limits;

// How often setrlimit was called on the pretended limits.
extern int limit_changes;

}  // namespace test

#endif
