// Without this the message queues could mix with each other, or keep what their row had before.
#include <gtest/gtest.h>

#include "os/os.h"
#include "tests/os/support.h"

namespace {

using test::Caller;
using test::element;

int32_t pend(int32_t queue, uint32_t timeout, uintptr_t& number) {
    void* message = element(777);
    const int32_t result = pthread_pend_wait_queue(queue, &message, timeout);
    EXPECT_EQ(message == nullptr, result != 0);
    number = test::number(message);
    return result;
}

TEST(MessageQueue, IsOneOfSeveral) {
    const int32_t queues[] = {pthread_request_queue(), pthread_request_queue()};
    for (const uintptr_t i : {0, 1, 2, 3}) {
        EXPECT_EQ(pthread_post_queue(queues[i % 2], element(i)), 0);
    }
    for (const uintptr_t i : {0, 2, 1, 3}) {
        uintptr_t got = 77;
        EXPECT_EQ(pend(queues[i % 2], i < 2 ? 0 : 1000, got), 0);
        EXPECT_EQ(got, i);
    }
    for (const int32_t queue : queues) {
        EXPECT_EQ(pthread_free_queue(queue), 0);
    }
}

TEST(MessageQueue, WaitsForEverOrNotAtAll) {
    const int32_t queue = pthread_request_queue();
    uintptr_t got = 0;
    EXPECT_EQ(pend(queue, UINT32_MAX, got), -8);
    EXPECT_EQ(pthread_pend_wait_queue(queue, nullptr, 0), -1);
    Caller waiter([&] { return pend(queue, 0, got); });
    EXPECT_TRUE(waiter.sleeps());
    EXPECT_EQ(pthread_post_queue(queue, element(9)), 0);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(got, 9u);

    EXPECT_EQ(pthread_free_queue(queue), 0);
    EXPECT_EQ(pthread_request_queue(), queue);
    EXPECT_EQ(pthread_post_queue(queue, nullptr), 0) << "the next queue of the row is open";
    EXPECT_EQ(pthread_free_queue(queue), 0);
}

}  // namespace
