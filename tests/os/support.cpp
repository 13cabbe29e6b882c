#include "tests/os/support.h"

#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>

#include <thread>

namespace test {

bool may_run_realtime() {
    bool allowed = false;
    std::thread([&allowed] {
        sched_param parameter{};
        parameter.sched_priority = 1;
        allowed = pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameter) == 0;
    }).join();
    return allowed;
}

std::chrono::nanoseconds time_of(const std::function<void()>& call) {
    const auto begin = Clock::now();
    call();
    return Clock::now() - begin;
}

void* element(uintptr_t number) {
    return reinterpret_cast<void*>(number + 1);
}

uintptr_t number(const void* element) {
    return reinterpret_cast<uintptr_t>(element) - 1;
}

}  // namespace test
