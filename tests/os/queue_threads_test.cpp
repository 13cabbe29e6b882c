// Without this a thread could wait in the queue for ever, or be woken for nothing.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using test::Caller;
using test::element;
using test::number;

TEST(QueueThreads, APutWaitsForRoom) {
    Queue* const queue = queue_create_limited(1);
    EXPECT_EQ(queue_put_wait(queue, element(1)), 0);
    Caller a([&] { return queue_put_wait(queue, element(3)); });
    Caller b([&] { return queue_put_wait(queue, element(3)); });
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    void* got = nullptr;
    EXPECT_EQ(queue_get(queue, &got), 0);
    EXPECT_TRUE(test::wait_until([&] { return a.done() || b.done(); }));
    EXPECT_FALSE(a.done() && b.done()) << "room for one only";
    EXPECT_EQ(queue_elements(queue), 1);
    EXPECT_EQ(queue_get(queue, &got), 0);
    EXPECT_EQ(a.result(), 0);
    EXPECT_EQ(b.result(), 0);
    EXPECT_EQ(queue_elements(queue), 1);
    EXPECT_EQ(queue_destroy(queue), 0);
}

TEST(QueueThreads, AGetWaitsOnceForAnElement) {
    Queue* const queue = queue_create();
    void* got_a = element(1);
    void* got_b = element(1);
    Caller a([&] { return queue_get_wait(queue, &got_a); });
    Caller b([&] { return queue_get_wait(queue, &got_b); });
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    EXPECT_EQ(queue_put(queue, element(9)), 0);
    const int results[] = {a.result(), b.result()};
    EXPECT_EQ(std::min(results[0], results[1]), -5) << "one finds the element gone";
    EXPECT_EQ(std::max(results[0], results[1]), 0);
    EXPECT_EQ(got_a, results[0] == 0 ? element(9) : nullptr);
    EXPECT_EQ(got_b, results[1] == 0 ? element(9) : nullptr);
    EXPECT_EQ(queue_destroy(queue), 0);
}

enum class Ending { close, destroy };

class QueueThreadsEnd : public testing::TestWithParam<Ending> {
protected:
    static void end(Queue* queue) {
        if (GetParam() == Ending::close) {
            EXPECT_EQ(queue_set_new_data(queue, 0), 0);
        } else {
            EXPECT_EQ(queue_destroy(queue), 0);
        }
    }
    static void clean_up(Queue* queue) {
        if (GetParam() == Ending::close) {
            EXPECT_EQ(queue_destroy(queue), 0);
        }
    }
};

// At the absolute limit an unbounded queue keeps its putters waiting, too.
TEST_P(QueueThreadsEnd, ReleasesGettersAndPutters) {
    struct Case {
        Queue* queue;
        uintptr_t filled;
    };
    for (const Case& c : {Case{queue_create(), 0}, Case{queue_create_limited(1), 1},
                          Case{queue_create(), QUEUE_ELEMENTS_MAX},
                          Case{queue_create_limited(65535), QUEUE_ELEMENTS_MAX}}) {
        Queue* const queue = c.queue;
        const bool full = c.filled > 0;
        for (uintptr_t i = 0; i < c.filled; ++i) {
            ASSERT_EQ(queue_put(queue, element(i)), 0);
        }
        ASSERT_EQ(queue_put(full ? queue : nullptr, element(0)), full ? -7 : -1);
        std::vector<void*> got(5, element(1));
        std::vector<std::unique_ptr<Caller>> waiters;
        for (void*& out : got) {
            waiters.push_back(std::make_unique<Caller>([queue, &out, full]() -> int {
                return full ? queue_put_wait(queue, out) : queue_get_wait(queue, &out);
            }));
            EXPECT_TRUE(waiters.back()->sleeps());
        }
        end(queue);
        for (auto& waiter : waiters) {
            EXPECT_EQ(waiter->result(), -4);
        }
        EXPECT_EQ(got, std::vector<void*>(5, full ? element(1) : nullptr));
        clean_up(queue);
    }
}

INSTANTIATE_TEST_SUITE_P(By, QueueThreadsEnd, testing::Values(Ending::close, Ending::destroy),
                         [](const auto& ending) {
                             return ending.param == Ending::close ? "Closing" : "Destroying";
                         });

// Many short lives: a waiter leaves while the queue is being freed.
TEST(QueueThreads, MayBeDestroyedAtAnyMomentOfAWait) {
    for (int round = 0; round < 200; ++round) {
        Queue* const queue = queue_create();
        Caller getter([&] {
            void* got = nullptr;
            return queue_get_wait(queue, &got);
        });
        // Only a call that has reached its wait may meet the end of the queue.
        ASSERT_TRUE(getter.sleeps());
        if (round % 2 == 0) {
            ASSERT_EQ(queue_put(queue, element(1)), 0);
            ASSERT_EQ(getter.result(), 0);
        }
        ASSERT_EQ(queue_destroy(queue), 0);
    }
}

TEST(QueueThreads, LoseNoElement) {
    constexpr uintptr_t kEach = 4000;
    Queue* const queue = queue_create_limited(16);
    std::atomic<uintptr_t> sum{0};
    std::vector<std::unique_ptr<Caller>> threads;
    for (int i = 0; i < 4; ++i) {
        threads.push_back(std::make_unique<Caller>([&] {
            for (uintptr_t taken = 0; taken < kEach;) {
                void* got = nullptr;
                if (const int result = queue_get_wait(queue, &got); result == 0) {
                    sum += number(got);
                    ++taken;
                } else if (result != -5) {
                    return result;
                }
            }
            return 0;
        }));
        threads.push_back(std::make_unique<Caller>([&] {
            int failures = 0;
            for (uintptr_t n = 0; n < kEach; ++n) {
                failures += queue_put_wait(queue, element(n)) != 0;
            }
            return failures;
        }));
    }
    for (auto& thread : threads) {
        EXPECT_EQ(thread->result(), 0);
    }
    EXPECT_EQ(sum, 4 * kEach * (kEach - 1) / 2);
    EXPECT_EQ(queue_destroy(queue), 0);
}

}  // namespace
