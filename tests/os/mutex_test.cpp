// Without this a mutex could let two in, or keep an urgent thread behind one that is not.
#include <gtest/gtest.h>

#include <cerrno>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using test::Caller;

TEST(Mutex, IsBusyForOthersWhileHeld) {
    const int32_t mutex = pthread_request_mutex();
    EXPECT_EQ(pthread_trylock_mutex(mutex), 0);
    EXPECT_EQ(Caller([&] { return pthread_trylock_mutex(mutex); }).result(), EBUSY);
    Caller waiter([&] {
        const int result = pthread_lock_mutex(mutex);
        pthread_unlock_mutex(mutex);
        return result;
    });
    EXPECT_TRUE(waiter.sleeps());
    EXPECT_EQ(pthread_unlock_mutex(mutex), 0);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(pthread_free_mutex(mutex), 0);
}

TEST(Mutex, LendsItsHolderThePriorityOfWhoWaits) {
    if (!test::may_run_realtime()) {
        GTEST_SKIP() << "no right to real-time scheduling";
    }
    const int32_t mutex = pthread_request_mutex();
    const int32_t leave = pthread_request_sem(0);
    Caller holder([&] {
        pthread_lock_mutex(mutex);
        pthread_sem_wait(leave, 0, 0);
        pthread_unlock_mutex(mutex);
        return 0;
    });
    ASSERT_TRUE(holder.sleeps());
    const int normal = holder.kernel_priority();
    Caller waiter([&] {
        pthread_set_param(10, PTHREAD_POLICY_FIFO);
        return pthread_lock_mutex(mutex) + pthread_unlock_mutex(mutex);
    });
    EXPECT_TRUE(test::wait_until([&] { return holder.kernel_priority() == -11; }));
    pthread_sem_signal(leave);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_NE(normal, -11);
    pthread_free_sem(leave);
    pthread_free_mutex(mutex);
}

}  // namespace
