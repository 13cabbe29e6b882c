// Threads and processes as the tests of the operating-system layer need them.
#ifndef TESTS_OS_SUPPORT_H
#define TESTS_OS_SUPPORT_H

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <thread>

#include "tests/support/process.h"

namespace test {

using Clock = std::chrono::steady_clock;

// One call on a thread of its own.
class Caller {
public:
    explicit Caller(std::function<int()> call);
    ~Caller();
    Caller(const Caller&) = delete;
    Caller& operator=(const Caller&) = delete;

    // Waits until the call has put its thread to sleep. False when it returns instead.
    bool sleeps();
    bool done() const { return done_; }
    // Waits for the call to return, and fails the test when it doesn't.
    int result();
    // Of the thread, as the kernel has it at this moment: -1 - N at real-time priority N.
    int kernel_priority() const;

private:
    char state() const;

    std::atomic<bool> done_{false};
    std::atomic<int> kernel_id_{0};
    int result_ = 0;
    std::thread thread_;
};

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
