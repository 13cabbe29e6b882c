// Calls that signal handlers interrupt while they wait.
#ifndef TESTS_NET_HELPERS_INTERRUPT_H
#define TESTS_NET_HELPERS_INTERRUPT_H

#include <gtest/gtest.h>
#include <signal.h>

#include <functional>
#include <utility>

#include "tests/support/caller.h"
#include "tests/support/process.h"

namespace test {

// Makes a call that waits in a thread of its own and interrupts the wait by a signal every
// millisecond until it returns. `finish`, called after a number of signals, ends the wait.
inline int call_interrupted(
    std::function<int()> call, const std::function<void()>& finish = [] {}) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART, so that system calls fail with EINTR
    sigaction(SIGUSR1, &action, nullptr);

    Caller caller(std::move(call));
    int signals = 0;
    const auto interrupt = [&] {
        if (caller.asleep()) {
            caller.interrupt(SIGUSR1);
            ++signals;
        }
        return caller.done();
    };
    wait_until([&] { return interrupt() || signals >= 20; });
    EXPECT_GT(signals, 0);
    finish();
    EXPECT_TRUE(wait_until(interrupt, std::chrono::seconds(5))) << "signals prolong the wait";
    return caller.result();
}

}  // namespace test

#endif
