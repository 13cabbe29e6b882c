// Without this a semaphore could let too many pass, or too few, or count time in a wrong unit.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <vector>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using namespace std::chrono_literals;
using test::Caller;

int empty_after(int32_t semaphore) {
    return pthread_sem_wait(semaphore, 1, 0);
}

TEST(Semaphore, GivesOneOrAllOfItsSignals) {
    for (const uint8_t take_all : std::vector<uint8_t>{0, 1, 128}) {
        const int32_t semaphore = pthread_request_sem(0);
        for (int i = 0; i < 3; ++i) {
            EXPECT_EQ(pthread_sem_signal(semaphore), 0);
        }
        EXPECT_EQ(pthread_sem_wait(semaphore, 1000, take_all), 0);
        EXPECT_EQ(empty_after(semaphore), take_all != 0 ? ETIMEDOUT : 0);
        EXPECT_EQ(pthread_free_sem(semaphore), 0);
    }
}

TEST(Semaphore, CountsTheTimeOutInMilliseconds) {
    const int32_t semaphore = pthread_request_sem(0);
    for (const uint32_t timeout_ms : {50u, 1100u}) {
        const auto taken = test::time_of(
            [&] { EXPECT_EQ(pthread_sem_wait(semaphore, timeout_ms, 1), ETIMEDOUT); });
        EXPECT_GE(taken, 1ms * timeout_ms);
        EXPECT_LT(taken, 1ms * timeout_ms + 10s);
    }
    Caller longest([&] { return pthread_sem_wait(semaphore, UINT32_MAX, 0); });
    EXPECT_TRUE(longest.sleeps());
    pthread_sem_signal(semaphore);
    EXPECT_EQ(longest.result(), 0) << "a signal ends a wait with a time-out";
    EXPECT_EQ(pthread_free_sem(semaphore), 0);
}

TEST(Semaphore, LetsAsManyPassAsItCountsAndThenOnePerSignal) {
    const int32_t semaphore = pthread_request_sem(2);
    EXPECT_EQ(pthread_sem_wait(semaphore, 0, 0), 0);
    EXPECT_EQ(pthread_sem_wait(semaphore, 0, 0), 0);
    std::vector<std::unique_ptr<Caller>> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.push_back(
            std::make_unique<Caller>([&] { return pthread_sem_wait(semaphore, 0, 0); }));
        EXPECT_TRUE(waiters.back()->sleeps());
    }
    const auto released = [&] {
        return std::count_if(waiters.begin(), waiters.end(), [](auto& w) { return w->done(); });
    };
    pthread_sem_signal(semaphore);
    EXPECT_TRUE(test::wait_until([&] { return released() > 0; }));
    EXPECT_EQ(empty_after(semaphore), ETIMEDOUT);
    EXPECT_EQ(released(), 1);
    for (int i = 0; i < 3; ++i) {
        pthread_sem_signal(semaphore);
    }
    for (auto& waiter : waiters) {
        EXPECT_EQ(waiter->result(), 0);
    }
    EXPECT_EQ(empty_after(semaphore), ETIMEDOUT);
    EXPECT_EQ(pthread_free_sem(semaphore), 0);
}

}  // namespace
