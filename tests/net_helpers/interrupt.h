// Calls that signal handlers interrupt while they wait.
#ifndef TESTS_NET_HELPERS_INTERRUPT_H
#define TESTS_NET_HELPERS_INTERRUPT_H

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

#include "tests/support/process.h"

namespace test {

// Whether a thread of this process sleeps in the kernel.
inline bool sleeping(pid_t thread) {
    const std::string stat = read_file("/proc/self/task/" + std::to_string(thread) + "/stat");
    const size_t name_end = stat.rfind(") ");
    return name_end != std::string::npos && stat[name_end + 2] == 'S';
}

// Makes a call that waits in a thread of its own and interrupts the wait by a signal every
// millisecond until it returns. `finish`, called after a number of signals, ends the wait.
template <typename Call>
auto call_interrupted(
    Call call, const std::function<void()>& finish = [] {}) {
    struct sigaction action {};
    action.sa_handler = [](int) {};  // and no SA_RESTART, so that system calls fail with EINTR
    sigaction(SIGUSR1, &action, nullptr);

    std::atomic<pid_t> thread_id{0};
    std::atomic<bool> done{false};
    decltype(call()) result{};
    std::thread caller([&] {
        thread_id = gettid();
        result = call();
        done = true;
    });
    int signals = 0;
    const auto interrupt = [&] {
        if (thread_id != 0 && sleeping(thread_id) && !done) {
            pthread_kill(caller.native_handle(), SIGUSR1);
            ++signals;
        }
        return done.load();
    };
    wait_until([&] { return interrupt() || signals >= 20; });
    EXPECT_GT(signals, 0);
    finish();
    EXPECT_TRUE(wait_until(interrupt, std::chrono::seconds(5))) << "signals prolong the wait";
    caller.join();
    return result;
}

}  // namespace test

#endif
