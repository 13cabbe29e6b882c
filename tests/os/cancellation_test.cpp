// Without this a thread that is cancelled in a wait could leave the object locked or in use.
#include <gtest/gtest.h>
#include <pthread.h>

#include <chrono>
#include <functional>
#include <thread>

#include "os/os.h"
#include "tests/os/support.h"

namespace {

using test::element;

struct Waits {
    const char* name;
    std::function<void()> wait;  // passes after each `pass`
    std::function<void()> pass;
    std::function<int32_t()> end;
};

Waits waits_of_a_semaphore() {
    const int32_t row = pthread_request_sem(0);
    return {"semaphore", [=] { pthread_sem_wait(row, 1000, 0); }, [=] { pthread_sem_signal(row); },
            [=] { return pthread_free_sem(row); }};
}

Waits waits_of_an_event() {
    const int32_t row = pthread_request_event();
    const auto wait = [=] {
        uint32_t set = 0;
        pthread_event_wait(row, 1, &set, 0);
        pthread_event_clr(row, 1);
    };
    return {"event", wait, [=] { pthread_event_set(row, 1); },
            [=] { return pthread_free_event(row); }};
}

Waits gets_of_a_queue() {
    Queue* const queue = queue_create();
    const auto wait = [=] {
        void* got = nullptr;
        queue_get_wait(queue, &got);
    };
    return {"get", wait, [=] { queue_put(queue, element(1)); },
            [=] { return int32_t{queue_destroy(queue)}; }};
}

Waits puts_to_a_queue() {
    Queue* const queue = queue_create_limited(1);
    const auto pass = [=] {
        void* got = nullptr;
        queue_get(queue, &got);
    };
    return {"put", [=] { queue_put_wait(queue, element(1)); }, pass,
            [=] { return int32_t{queue_destroy(queue)}; }};
}

void* go_on_waiting(void* waits) {
    for (;;) {
        static_cast<const Waits*>(waits)->wait();
    }
}

// Whatever the thread does when it is cancelled, the next calls on the object return, and so does
// its end, which waits for the threads inside.
TEST(Cancellation, LeavesNoObjectLockedOrInUse) {
    for (Waits waits :
         {waits_of_a_semaphore(), waits_of_an_event(), gets_of_a_queue(), puts_to_a_queue()}) {
        SCOPED_TRACE(waits.name);
        for (int round = 0; round < 300; ++round) {
            pthread_t thread{};
            ASSERT_EQ(pthread_create(&thread, nullptr, go_on_waiting, &waits), 0);
            for (int i = 0; i < round % 50; ++i) {
                waits.pass();
            }
            std::this_thread::sleep_for(std::chrono::microseconds(round % 7 * 30));
            pthread_cancel(thread);
            waits.pass();
            void* result = nullptr;
            ASSERT_EQ(pthread_join(thread, &result), 0);
            ASSERT_EQ(result, PTHREAD_CANCELED);
            waits.pass();
        }
        EXPECT_EQ(waits.end(), 0);
    }
}

}  // namespace
