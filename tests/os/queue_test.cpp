// Without this the queue could lose, double or mis-sort elements, or leak them, when one thread
// uses it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <vector>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/allocations.h"

namespace {

using test::element;
using test::number;
using Numbers = std::vector<uintptr_t>;

struct Destroy {
    void operator()(Queue* queue) const { EXPECT_EQ(queue_destroy(queue), 0); }
};
using OwnedQueue = std::unique_ptr<Queue, Destroy>;

// Elements compare by their tens, so that 31 and 35 are equal. Comparisons of any size are allowed,
// the one without a counterpart of the other sign included.
int32_t compare_tens(void* a, void* b) {
    const uintptr_t left = number(a) / 10;
    const uintptr_t right = number(b) / 10;
    return left < right ? INT32_MIN : left > right ? INT32_MAX : 0;
}

void put_all(Queue* queue, const Numbers& numbers) {
    for (const uintptr_t n : numbers) {
        ASSERT_EQ(queue_put(queue, element(n)), 0);
    }
}

Numbers take_all(Queue* queue) {
    Numbers numbers;
    void* got = nullptr;
    while (queue_get(queue, &got) == 0) {
        numbers.push_back(number(got));
    }
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(queue_empty(queue), 1);
    return numbers;
}

// Accepts the one number that `arg` stands for, and counts its calls in `asked`.
int asked = 0;
int32_t only(void* node, void* arg) {
    ++asked;
    return *static_cast<void**>(node) == arg ? 0 : 1;
}

Numbers released;
void note_release(void* released_element) {
    released.push_back(number(released_element));
}

TEST(Queue, GivesElementsInOrderOfArrival) {
    const OwnedQueue queue(queue_create());
    void* got = element(1);
    EXPECT_EQ(queue_get(queue.get(), &got), -7);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(queue_empty(queue.get()), 1);
    put_all(queue.get(), {5, 1, 3});
    EXPECT_EQ(queue_put(queue.get(), nullptr), 0) << "null is an element like any other";
    EXPECT_EQ(queue_elements(queue.get()), 4);
    EXPECT_EQ(queue_empty(queue.get()), 0);
    EXPECT_EQ(queue_get_wait(queue.get(), &got), 0);
    EXPECT_EQ(number(got), 5u);
    EXPECT_EQ(queue_get_timewait(queue.get(), &got, 1), 0);
    EXPECT_EQ(number(got), 1u);
    EXPECT_EQ(queue_get(queue.get(), &got), 0);
    EXPECT_EQ(number(got), 3u);
    EXPECT_EQ(queue_get(queue.get(), &got), 0);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(queue_empty(queue.get()), 1);
}

TEST(Queue, AnswersNullPointers) {
    void* got = element(1);
    EXPECT_EQ(queue_put(nullptr, got), -1);
    EXPECT_EQ(queue_put_wait(nullptr, got), -1);
    EXPECT_EQ(queue_flush(nullptr), -1);
    EXPECT_EQ(queue_flush_complete(nullptr, nullptr), -1);
    EXPECT_EQ(queue_flush_put(nullptr, nullptr, got), -1);
    EXPECT_EQ(queue_flush_complete_put(nullptr, nullptr, got), -1);
    EXPECT_EQ(queue_elements(nullptr), 65535);
    EXPECT_EQ(queue_empty(nullptr), -1);
    EXPECT_EQ(queue_set_new_data(nullptr, 1), -1);
    EXPECT_EQ(queue_get_new_data(nullptr), 0);
    EXPECT_EQ(queue_destroy(nullptr), -1);
    EXPECT_EQ(queue_destroy_complete(nullptr, nullptr), -1);
    EXPECT_EQ(queue_create_sorted(1, nullptr), nullptr);
    EXPECT_EQ(queue_create_limited_sorted(2, 0, nullptr), nullptr);

    int8_t (*const gets[])(Queue*, void**) = {
        queue_get, queue_get_wait,
        [](Queue* queue, void** out) { return queue_get_timewait(queue, out, 5); },
        [](Queue* queue, void** out) { return queue_get_filtered(queue, out, only, nullptr); }};
    for (const auto get : gets) {
        got = element(1);
        EXPECT_EQ(get(nullptr, &got), -1);
        EXPECT_EQ(got, nullptr);
        EXPECT_EQ(get(nullptr, nullptr), -1);
    }
}

TEST(Queue, IsBoundedIfMadeSo) {
    const OwnedQueue fifo(queue_create_limited(2));
    const OwnedQueue sorted(queue_create_limited_sorted(2, 1, compare_tens));
    for (Queue* queue : {fifo.get(), sorted.get()}) {
        put_all(queue, {20, 30});
        EXPECT_EQ(queue_put(queue, element(10)), -7);
        EXPECT_EQ(queue_elements(queue), 2);
        void* got = nullptr;
        EXPECT_EQ(queue_get(queue, &got), 0);
        EXPECT_EQ(queue_put(queue, element(40)), 0);
        EXPECT_EQ(take_all(queue), (Numbers{30, 40}));
    }
}

// Puts, gets and filtered gets at random, against a sorted list. Of equal elements the newest is
// the first.
TEST(Queue, KeepsItsOrderThroughAnyUse) {
    for (const int8_t direction : {int8_t{-1}, int8_t{0}}) {
        const OwnedQueue queue(queue_create_sorted(direction, compare_tens));
        Numbers model;
        std::mt19937 random(1);
        void* got = nullptr;
        for (int step = 0; step < 5000; ++step) {
            const uintptr_t action = random() % 5;
            if (action < 3 || model.empty()) {
                const uintptr_t n = random() % 200;
                ASSERT_EQ(queue_put(queue.get(), element(n)), 0);
                const auto place = std::find_if(model.begin(), model.end(), [=](uintptr_t m) {
                    return direction != 0 ? m / 10 >= n / 10 : m / 10 <= n / 10;
                });
                model.insert(place, n);
            } else {
                const size_t at = action == 3 ? 0 : random() % model.size();
                const auto chosen = std::find(model.begin(), model.end(), model[at]);
                ASSERT_EQ(queue_get_filtered(queue.get(), &got, only, element(*chosen)), 0);
                ASSERT_EQ(number(got), *chosen);
                model.erase(chosen);
            }
        }
        EXPECT_EQ(take_all(queue.get()), model);
    }
}

TEST(Queue, GivesTheFirstElementThatAFilterAccepts) {
    const OwnedQueue queue(queue_create());
    void* got = element(1);
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, only, element(1)), -7);
    EXPECT_EQ(got, nullptr);
    put_all(queue.get(), {1, 2, 3, 4});
    asked = 0;
    got = element(1);
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, only, element(9)), -5);
    EXPECT_EQ(got, nullptr);
    EXPECT_EQ(asked, 4);
    EXPECT_EQ(queue_elements(queue.get()), 4);
    asked = 0;
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, only, element(2)), 0);
    EXPECT_EQ(number(got), 2u);
    EXPECT_EQ(asked, 2);
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, nullptr, nullptr), 0);
    EXPECT_EQ(number(got), 1u);
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, only, element(4)), 0) << "the last one";
    put_all(queue.get(), {4});
    EXPECT_EQ(take_all(queue.get()), (Numbers{3, 4}));
    put_all(queue.get(), {5});
    EXPECT_EQ(queue_get_filtered(queue.get(), &got, only, element(5)), 0);
    EXPECT_EQ(queue_empty(queue.get()), 1);
    put_all(queue.get(), {6, 7});
    EXPECT_EQ(take_all(queue.get()), (Numbers{6, 7}));
}

// With no function to release them, the allocator is meant.
TEST(Queue, DropsOrReleasesItsElements) {
    released.clear();
    Queue* queue = queue_create();
    put_all(queue, {1, 2});
    EXPECT_EQ(queue_flush(queue), 0);
    put_all(queue, {3, 4});
    EXPECT_EQ(queue_flush_put(queue, note_release, element(5)), 0);
    EXPECT_EQ(released, Numbers{});
    EXPECT_EQ(queue_flush_complete_put(queue, note_release, element(6)), 0);
    EXPECT_EQ(released, Numbers{5});
    EXPECT_EQ(queue_flush_complete(queue, note_release), 0);
    EXPECT_EQ(released, (Numbers{5, 6}));
    EXPECT_EQ(queue_empty(queue), 1);
    put_all(queue, {7});
    EXPECT_EQ(queue_destroy(queue), 0);
    EXPECT_EQ(released, (Numbers{5, 6}));

    queue = queue_create_limited(3);
    put_all(queue, {7, 8});
    EXPECT_EQ(queue_destroy_complete(queue, note_release), 0);
    EXPECT_EQ(released, (Numbers{5, 6, 7, 8}));

    queue = queue_create();
    ASSERT_EQ(queue_put(queue, os_malloc(10)), 0);
    EXPECT_EQ(queue_flush_complete(queue, nullptr), 0);
    ASSERT_EQ(queue_put(queue, os_malloc(10)), 0);
    ASSERT_EQ(queue_flush_complete_put(queue, nullptr, os_malloc(10)), 0);
    EXPECT_EQ(queue_destroy_complete(queue, nullptr), 0);
}

TEST(Queue, RefusesPutsWhileItIsClosed) {
    const OwnedQueue queue(queue_create_limited(1));
    EXPECT_EQ(queue_get_new_data(queue.get()), 1);
    put_all(queue.get(), {1});
    EXPECT_EQ(queue_set_new_data(queue.get(), 0), 0);
    EXPECT_EQ(queue_get_new_data(queue.get()), 0);
    EXPECT_EQ(queue_put(queue.get(), element(2)), -4) << "closed comes before full";
    EXPECT_EQ(queue_put_wait(queue.get(), element(2)), -4);
    void* got = nullptr;
    EXPECT_EQ(queue_get_wait(queue.get(), &got), 0) << "what is queued can still be taken";
    EXPECT_EQ(number(got), 1u);
    EXPECT_EQ(queue_get(queue.get(), &got), -7);

    EXPECT_EQ(queue_set_new_data(queue.get(), 200), 0);
    EXPECT_EQ(queue_get_new_data(queue.get()), 200);
    put_all(queue.get(), {3});
    EXPECT_EQ(queue_set_new_data(queue.get(), 0), 0);
    EXPECT_EQ(queue_flush_put(queue.get(), nullptr, element(4)), -4);
    EXPECT_EQ(queue_empty(queue.get()), 1) << "flushed before the put was refused";
    EXPECT_EQ(queue_flush_complete_put(queue.get(), nullptr, element(4)), -4);
}

TEST(Queue, LeavesNoMemoryBehindAndReportsThatThereIsNone) {
    const int64_t before = test::live_bytes();
    EXPECT_EQ(queue_destroy(queue_create()), 0);
    EXPECT_EQ(test::live_bytes(), before);
    if (test::sanitized()) {
        GTEST_SKIP() << "the sanitizer has an allocator of its own";
    }
    for (int part = 1; part <= 4; ++part) {
        test::fail_allocation(part);
        EXPECT_EQ(queue_create(), nullptr) << part;
        EXPECT_EQ(test::live_bytes(), before) << part;
    }
    const OwnedQueue queue(queue_create());
    test::fail_allocation(1);
    EXPECT_EQ(queue_put(queue.get(), element(1)), -3);
    put_all(queue.get(), {2});
    EXPECT_EQ(take_all(queue.get()), Numbers{2});
    test::fail_allocation(1);
    EXPECT_EQ(pthread_request_queue(), -3);
    EXPECT_EQ(pthread_request_queue(), 0) << "the row is free again";
    EXPECT_EQ(pthread_free_queue(0), 0);
}

TEST(Queue, AnswersATimedGetAtOnce) {
    const OwnedQueue queue(queue_create());
    void* got = element(1);
    EXPECT_EQ(queue_get_timewait(queue.get(), &got, 0), -1);
    EXPECT_EQ(got, nullptr);
    for (const uint32_t timeout_us : {1u, 5'000'000u, UINT32_MAX}) {
        got = element(1);
        const auto taken = test::time_of(
            [&] { EXPECT_EQ(queue_get_timewait(queue.get(), &got, timeout_us), -8); });
        EXPECT_EQ(got, nullptr);
        EXPECT_LT(taken, std::chrono::seconds(2));
    }
    put_all(queue.get(), {1});
    EXPECT_EQ(queue_get_timewait(queue.get(), &got, 0), -1);
    EXPECT_EQ(take_all(queue.get()), Numbers{1});
}

TEST(Memory, IsThatOfTheStandardAllocator) {
    char* const block = static_cast<char*>(
        os_realloc(std::strcpy(static_cast<char*>(os_malloc(8)), "content"), 1 << 20));
    EXPECT_STREQ(block, "content");
    std::free(block);
    os_free(std::malloc(16));
    os_free(nullptr);
}

}  // namespace
