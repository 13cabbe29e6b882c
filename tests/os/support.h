// What the tests of the operating-system layer have in common.
#ifndef TESTS_OS_SUPPORT_H
#define TESTS_OS_SUPPORT_H

#include <chrono>
#include <cstdint>
#include <functional>

#include "tests/support/caller.h"
#include "tests/support/process.h"

namespace test {

using Clock = std::chrono::steady_clock;

// Whether a sanitizer is at work, which takes memory and widens stacks.
constexpr bool sanitized() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return true;
#else
    return false;
#endif
}

// Whether threads of this process may have real-time scheduling.
bool may_run_realtime();

// The time that `call` takes.
std::chrono::nanoseconds time_of(const std::function<void()>& call);

// Pointers that stand for numbers; 0 is not null.
void* element(uintptr_t number);
uintptr_t number(const void* element);

}  // namespace test

#endif
