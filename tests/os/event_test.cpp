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
        EXPECT_LT(taken, 1us * timeout_us + 1s);
    }
}

TEST_F(Event, WakesTheWaiterForItsFlagsOnly) {
    uint32_t out = 0;
    Caller waiter([&] { return pthread_event_wait(group_, 0x30, &out, 0); });
    EXPECT_TRUE(waiter.sleeps());
    pthread_event_set(group_, 0x1);
    pthread_event_clr(group_, 0x1);
    EXPECT_TRUE(waiter.sleeps());
    pthread_event_set(group_, 0x11);
    EXPECT_EQ(waiter.result(), 0);
    EXPECT_EQ(out, 0x10u);
}

TEST_F(Event, WakesOneWaiterPerSet) {
    uint32_t out_a = 0;
    uint32_t out_b = 0;
    Caller a([&] { return pthread_event_wait(group_, 0x1, &out_a, 0); });
    Caller b([&] { return pthread_event_wait(group_, 0x1, &out_b, 0); });
    EXPECT_TRUE(a.sleeps());
    EXPECT_TRUE(b.sleeps());
    pthread_event_set(group_, 0x1);
    EXPECT_TRUE(test::wait_until([&] { return a.done() || b.done(); }));
    EXPECT_FALSE(test::wait_until([&] { return a.done() && b.done(); }, 200ms));
    pthread_event_set(group_, 0x1);
    EXPECT_EQ(a.result(), 0);
    EXPECT_EQ(b.result(), 0);
    EXPECT_EQ(out_a, 0x1u);
    EXPECT_EQ(out_b, 0x1u);
}

// Every set is answered before the next one, each on flags that the other thread has cleared.
TEST_F(Event, CarriesAConversationBetweenTwoThreads) {
    constexpr int rounds = 5000;
    const auto talk = [&](uint32_t hear, uint32_t say, bool first) {
        for (int i = 0; i < rounds; ++i) {
            uint32_t out = 0;
            if (first) {
                pthread_event_set(group_, say);
            }
            if (pthread_event_wait(group_, hear, &out, 10'000'000) != 0) {
                return i;
            }
            pthread_event_clr(group_, hear);
            if (!first) {
                pthread_event_set(group_, say);
            }
        }
        return rounds;
    };
    Caller caller([&] { return talk(0x2, 0x1, true); });
    Caller answerer([&] { return talk(0x1, 0x2, false); });
    EXPECT_EQ(caller.result(), rounds);
    EXPECT_EQ(answerer.result(), rounds);
}

}  // namespace
