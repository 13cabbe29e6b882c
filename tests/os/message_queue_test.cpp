#include <gtest/gtest.h>

#include <memory>
#include <vector>

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

TEST(MessageQueue, PassesMessagesInOrder) {
    const int32_t queue = pthread_request_queue();
    const int32_t other = pthread_request_queue();
    for (uintptr_t i = 0; i < 5; ++i) {
        EXPECT_EQ(pthread_post_queue(queue, element(i)), 0);
    }
    EXPECT_EQ(pthread_post_queue(other, element(50)), 0);
    uintptr_t got = 0;
    for (uintptr_t i = 0; i < 5; ++i) {
        EXPECT_EQ(pend(queue, i % 2 == 0 ? 0 : 1000, got), 0);
        EXPECT_EQ(got, i);
    }
    EXPECT_EQ(pend(other, 0, got), 0);
    EXPECT_EQ(got, 50u);
    EXPECT_EQ(pthread_free_queue(other), 0);
    EXPECT_EQ(pthread_free_queue(queue), 0);
}

TEST(MessageQueue, WaitsForEverOrNotAtAll) {
    const int32_t queue = pthread_request_queue();
    uintptr_t got = 0;
    const auto taken = test::time_of([&] { EXPECT_EQ(pend(queue, UINT32_MAX, got), -8); });
    EXPECT_LT(taken, std::chrono::seconds(2));
    Caller waiter([&] { return pend(queue, 0, got); });
    EXPECT_TRUE(waiter.sleeps());
    EXPECT_EQ(pthread_post_queue(queue, element(9)), 0);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(got, 9u);
    EXPECT_EQ(pthread_pend_wait_queue(queue, nullptr, 0), -1);
    EXPECT_EQ(pthread_free_queue(queue), 0);
}

TEST(MessageQueue, ReleasesTheTasksThatPendWhenItIsFreed) {
    const int32_t queue = pthread_request_queue();
    std::vector<uintptr_t> got(4);
    std::vector<std::unique_ptr<Caller>> waiters;
    for (uintptr_t& number : got) {
        waiters.push_back(std::make_unique<Caller>([&] { return pend(queue, 0, number); }));
        EXPECT_TRUE(waiters.back()->sleeps());
    }
    EXPECT_EQ(pthread_free_queue(queue), 0);
    for (auto& waiter : waiters) {
        EXPECT_EQ(waiter->result(), -4);
    }
    EXPECT_EQ(pthread_request_queue(), queue);
    EXPECT_EQ(pthread_post_queue(queue, nullptr), 0) << "the next queue of the row is open";
    EXPECT_EQ(pthread_free_queue(queue), 0);
}

}  // namespace
