// The generic queue between threads.
#include <gtest/gtest.h>

#include <algorithm>
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
    Queue* const queue = queue_create_limited(2);
    EXPECT_EQ(queue_put_wait(queue, element(1)), 0);
    EXPECT_EQ(queue_put_wait(queue, element(2)), 0);
    Caller a([&] { return queue_put_wait(queue, element(3)); });
    Caller b([&] { return queue_put_wait(queue, element(3)); });
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    void* got = nullptr;
    EXPECT_EQ(queue_get(queue, &got), 0);
    EXPECT_TRUE(test::wait_until([&] { return a.done() || b.done(); }));
    EXPECT_FALSE(a.done() && b.done()) << "room for one only";
    EXPECT_EQ(queue_elements(queue), 2);
    EXPECT_EQ(queue_get(queue, &got), 0);
    EXPECT_EQ(a.result(), 0);
    EXPECT_EQ(b.result(), 0);
    EXPECT_EQ(queue_elements(queue), 2);
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
                          Case{queue_create(), QUEUE_ELEMENTS_MAX}}) {
        Queue* const queue = c.queue;
        const bool full = c.filled > 0;
        for (uintptr_t i = 0; i < c.filled; ++i) {
            ASSERT_EQ(queue_put(queue, element(i)), 0);
        }
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

TEST(QueueThreads, AccountsForEveryElement) {
    constexpr uintptr_t per_producer = 4000;
    constexpr uintptr_t producers = 4;
    constexpr uintptr_t consumers = 4;
    constexpr uintptr_t stop = producers * per_producer;
    Queue* const queue = queue_create_limited(16);
    std::vector<std::vector<uintptr_t>> taken(consumers);
    std::vector<std::unique_ptr<Caller>> getting;
    for (auto& numbers : taken) {
        getting.push_back(std::make_unique<Caller>([&queue, &numbers] {
            for (;;) {
                void* got = nullptr;
                const int result = queue_get_wait(queue, &got);
                if (result == 0 && number(got) == stop) {
                    return 0;
                }
                if (result == 0) {
                    numbers.push_back(number(got));
                } else if (result != -5) {
                    return result;
                }
            }
        }));
    }
    std::vector<std::unique_ptr<Caller>> putting;
    for (uintptr_t producer = 0; producer < producers; ++producer) {
        putting.push_back(std::make_unique<Caller>([&queue, producer] {
            int failures = 0;
            for (uintptr_t i = 0; i < per_producer; ++i) {
                failures += queue_put_wait(queue, element(producer * per_producer + i)) != 0;
            }
            return failures;
        }));
    }
    for (auto& producer : putting) {
        EXPECT_EQ(producer->result(), 0);
    }
    for (uintptr_t i = 0; i < consumers; ++i) {
        EXPECT_EQ(queue_put_wait(queue, element(stop)), 0);
    }
    for (auto& consumer : getting) {
        EXPECT_EQ(consumer->result(), 0);
    }
    EXPECT_EQ(queue_empty(queue), 1);
    EXPECT_EQ(queue_destroy(queue), 0);

    std::vector<int> seen(stop, 0);
    for (const auto& numbers : taken) {
        std::vector<uintptr_t> next(producers, 0);
        for (const uintptr_t n : numbers) {
            ++seen[n];
            EXPECT_GE(n, next[n / per_producer]) << "one producer's elements keep their order";
            next[n / per_producer] = n;
        }
    }
    EXPECT_EQ(std::count(seen.begin(), seen.end(), 1), static_cast<ptrdiff_t>(stop));
}

}  // namespace
