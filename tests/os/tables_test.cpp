// Without this a table of the layer could change its size, its order of rows, or its answers for
// rows that are not there or not in use, which differ between the families on purpose.
#include <gtest/gtest.h>

#include <functional>
#include <ostream>
#include <vector>

#include "os/os.h"
#include "tests/os/support.h"

namespace {

struct Call {
    const char* name;
    std::function<int32_t(int32_t)> make;
    int32_t on_free_row;
};

struct Family {
    const char* name;
    int32_t rows;
    int32_t full;
    int32_t (*request)();
    int32_t (*free)(int32_t);
    std::vector<Call> calls;
};

void PrintTo(const Family& family, std::ostream* out) {
    *out << family.name;
}

int32_t request_timer() {
    return pthread_request_timer(
        1'000'000, [](int) {}, nullptr, nullptr, 0, 0, 0);
}

int32_t pend(int32_t row) {
    int untouched = 0;
    void* message = &untouched;
    const int32_t result = pthread_pend_wait_queue(row, &message, 0);
    EXPECT_EQ(message, &untouched);
    return result;
}

int32_t wait_for_event(int32_t row) {
    uint32_t flags = 77;
    const int32_t result = pthread_event_wait(row, 1, &flags, 0);
    EXPECT_EQ(flags, 77u);
    return result;
}

const Family families[] = {
    {"Mutexes",
     40,
     -1,
     pthread_request_mutex,
     pthread_free_mutex,
     {{"free", pthread_free_mutex, 0},
      {"lock", pthread_lock_mutex, 0},
      {"trylock", pthread_trylock_mutex, -1},
      {"unlock", pthread_unlock_mutex, 0}}},
    {"MessageQueues",
     20,
     -3,
     pthread_request_queue,
     pthread_free_queue,
     {{"free", pthread_free_queue, 0},
      {"post", [](int32_t row) { return pthread_post_queue(row, nullptr); }, 0},
      {"pend", pend, 0}}},
    {"Semaphores",
     30,
     -1,
     [] { return pthread_request_sem(0); },
     pthread_free_sem,
     {{"free", pthread_free_sem, -1},
      {"wait", [](int32_t row) { return pthread_sem_wait(row, 0, 0); }, -1},
      {"signal", pthread_sem_signal, -1}}},
    {"Events",
     8,
     -1,
     pthread_request_event,
     pthread_free_event,
     {{"free", pthread_free_event, -1},
      {"wait", wait_for_event, -1},
      {"set", [](int32_t row) { return pthread_event_set(row, 1); }, -1},
      {"clear", [](int32_t row) { return pthread_event_clr(row, 1); }, -1}}},
    {"Timers",
     3,
     -1,
     request_timer,
     pthread_free_timer,
     {{"free", pthread_free_timer, -1},
      {"start", pthread_start_timer, -1},
      {"stop", pthread_stop_timer, -1}}},
};

class Tables : public testing::TestWithParam<Family> {
protected:
    void fill() {
        for (int32_t row = 0; row < GetParam().rows; ++row) {
            ASSERT_EQ(GetParam().request(), row);
        }
        ASSERT_EQ(GetParam().request(), GetParam().full);
    }
    void free_all() {
        for (int32_t row = 0; row < GetParam().rows; ++row) {
            ASSERT_EQ(GetParam().free(row), 0);
        }
    }
};

TEST_P(Tables, HandOutTheLowestFreeRow) {
    fill();
    const int32_t last = GetParam().rows - 1;
    for (const int32_t row : {1, last, 0}) {
        EXPECT_EQ(GetParam().free(row), 0);
    }
    for (const int32_t row : {0, 1, last}) {
        EXPECT_EQ(GetParam().request(), row);
    }
    EXPECT_EQ(GetParam().request(), GetParam().full);
    free_all();
}

TEST_P(Tables, AnswerForRowsThatAreNotInUse) {
    const int32_t rows = GetParam().rows;
    for (const Call& call : GetParam().calls) {
        SCOPED_TRACE(call.name);
        for (const int32_t outside : {-1, rows, INT32_MIN, INT32_MAX}) {
            EXPECT_EQ(call.make(outside), -1) << outside;
        }
        EXPECT_EQ(call.make(0), call.on_free_row);
        EXPECT_EQ(call.make(rows - 1), call.on_free_row);
    }
    fill();
    free_all();
    for (const Call& call : GetParam().calls) {
        EXPECT_EQ(call.make(1), call.on_free_row) << call.name << " after use";
    }
}

// In a child, since what was in use is forgotten and not released.
TEST_P(Tables, AreAllFreeAfterTheLayersStart) {
    EXPECT_EQ(test::in_child([this] {
                  fill();
                  pthread_drv_init();
                  fill();
                  return HasFatalFailure() ? 1 : 0;
              }),
              0);
}

INSTANTIATE_TEST_SUITE_P(Of, Tables, testing::ValuesIn(families),
                         [](const auto& family) { return family.param.name; });

}  // namespace
