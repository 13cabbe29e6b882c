// Without this event flags could get lost, wake the wrong threads, or count time in a wrong unit.
#include <gtest/gtest.h>

#include <cerrno>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using namespace std::chrono_literals;
using test::Caller;

class Event : public testing::Test {
protected:
    ~Event() override { EXPECT_EQ(pthread_free_event(group_), 0); }

    // The flags of `mask` that are set.
    uint32_t flags(uint32_t mask = UINT32_MAX) {
        uint32_t out = 77;
        const int32_t result = pthread_event_wait(group_, mask, &out, 1);
        EXPECT_EQ(result, out != 0 ? 0 : ETIMEDOUT);
        return out;
    }

    const int32_t group_ = pthread_request_event();
};

TEST_F(Event, KeepsItsFlagsUntilTheyAreCleared) {
    EXPECT_EQ(flags(), 0u);
    EXPECT_EQ(pthread_event_set(group_, 0x6), 0);
    uint32_t out = 0;
    EXPECT_EQ(pthread_event_wait(group_, 0x4, &out, 0), 0);
    EXPECT_EQ(out, 0x4u);
    EXPECT_EQ(flags(), 0x6u);
    EXPECT_EQ(flags(0x9), 0u);
    EXPECT_EQ(pthread_event_set(group_, 0x80000001), 0);
    EXPECT_EQ(flags(), 0x80000007u);
    EXPECT_EQ(pthread_event_clr(group_, 0x5), 0);
    EXPECT_EQ(flags(), 0x80000002u);
}

TEST_F(Event, CountsTheTimeOutInMicroseconds) {
    pthread_event_set(group_, 0x2);
    for (const uint32_t timeout_us : {2000u, 1'200'000u}) {
        uint32_t out = 77;
        const auto taken = test::time_of(
            [&] { EXPECT_EQ(pthread_event_wait(group_, 0x1, &out, timeout_us), ETIMEDOUT); });
        EXPECT_EQ(out, 0u);
        EXPECT_GE(taken, 1us * timeout_us);
        EXPECT_LT(taken, 1us * timeout_us + 10s);
    }
}

TEST_F(Event, WakesOneWaiterPerSetOfItsFlags) {
    uint32_t out_a = 0;
    uint32_t out_b = 0;
    Caller a([&] { return pthread_event_wait(group_, 0x30, &out_a, 0); });
    Caller b([&] { return pthread_event_wait(group_, 0x30, &out_b, 0); });
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    for (int i = 0; i < 2; ++i) {
        pthread_event_set(group_, 0x1);
        pthread_event_clr(group_, 0x1);
    }
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    pthread_event_set(group_, 0x11);
    EXPECT_TRUE(test::wait_until([&] { return a.done() || b.done(); }));
    EXPECT_FALSE(test::wait_until([&] { return a.done() && b.done(); }, 200ms));
    pthread_event_set(group_, 0x11);
    EXPECT_EQ(a.result() + b.result(), 0);
    EXPECT_EQ(out_a, 0x10u);
    EXPECT_EQ(out_b, 0x10u);
}

}  // namespace
