// Without this a timer could call too often, too late, on a wrong thread or after its end.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <ostream>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using namespace std::chrono_literals;
using test::Clock;
using test::wait_until;

constexpr uint32_t kBigStack = 262144;
constexpr int32_t kPriority = 20;

// What a timer's callback has seen, and what it is to do.
struct Calls {
    std::atomic<int> count{0};
    std::atomic<int64_t> index{-1};
    std::atomic<pid_t> thread{0};
    std::atomic<int> policy{-1};
    std::atomic<int> priority{-1};
    std::function<void(int call)> act = [](int) {};

    // Waits until the timer has called `more` times from now.
    bool goes_on(int more = 3) {
        const int target = count + more;
        return wait_until([&] { return count >= target; });
    }
    bool stands_still(std::chrono::milliseconds span = 50ms) {
        const int before = count;
        return !wait_until([&] { return count != before; }, span);
    }
};

void note_call(uint32_t index, void* arg) {
    Calls& calls = *static_cast<Calls*>(arg);
    sched_param parameter{};
    sched_getparam(0, &parameter);
    calls.index = index;
    calls.thread = gettid();
    calls.policy = sched_getscheduler(0);
    calls.priority = parameter.sched_priority;
    calls.act(++calls.count);
}

// The signal does not say which timer it is of, so all of them count for the one requested last.
Calls* signalled = nullptr;
void count_alarm(int signal_number) {
    signalled->count += signal_number == SIGALRM ? 1 : 1000000;
}

int32_t request_signal_timer(uint32_t period_us, Calls& calls, uint32_t one_shot = 0) {
    signalled = &calls;
    return pthread_request_timer(period_us, count_alarm, nullptr, nullptr, 0, 0, one_shot);
}

int32_t request_own_thread(uint32_t period_us, Calls& calls, uint32_t one_shot = 0) {
    return pthread_request_timer(period_us, nullptr, note_call, &calls, kBigStack, kPriority,
                                 one_shot);
}

int32_t request_simulated(uint32_t period_us, Calls& calls, uint32_t one_shot = 0) {
    return pthread_request_timer(period_us, nullptr, note_call, &calls, 0, 0, one_shot);
}

using Request = int32_t (*)(uint32_t period_us, Calls& calls, uint32_t one_shot);

// Timers that wait for their start, by what calls.
struct Kind {
    const char* name;
    Request request;
    bool realtime;
};

void PrintTo(const Kind& kind, std::ostream* out) {
    *out << kind.name;
}

class StartedTimer : public testing::TestWithParam<Kind> {
protected:
    void SetUp() override {
        if (GetParam().realtime && !test::may_run_realtime()) {
            GTEST_SKIP() << "no right to real-time scheduling";
        }
    }

    Calls calls_;
};

// Of timers that call on real-time threads.
class RealTimeTimer : public testing::Test {
protected:
    void SetUp() override {
        if (!test::may_run_realtime()) {
            GTEST_SKIP() << "no right to real-time scheduling";
        }
    }
};
class RealTimeTiming : public RealTimeTimer {};

INSTANTIATE_TEST_SUITE_P(By, StartedTimer,
                         testing::Values(Kind{"Signal", request_signal_timer, false},
                                         Kind{"OwnThread", request_own_thread, true}),
                         [](const auto& kind) { return kind.param.name; });

TEST_P(StartedTimer, CallsFromItsStartToItsStop) {
    const int32_t timer = GetParam().request(2000, calls_, 0);
    ASSERT_EQ(timer, 0);
    EXPECT_TRUE(calls_.stands_still()) << "not armed by the request";
    for (int round = 0; round < 2; ++round) {
        EXPECT_EQ(pthread_start_timer(timer), 0);
        EXPECT_TRUE(calls_.goes_on(5));
        EXPECT_EQ(pthread_stop_timer(timer), 0);
        wait_until([] { return false; }, 20ms);  // an expiry under way may still call
        EXPECT_TRUE(calls_.stands_still());
    }
    EXPECT_EQ(pthread_free_timer(timer), 0);
    EXPECT_EQ(test::read_file("/proc/self/timers"), "") << "the system has it no more";
}

TEST_P(StartedTimer, CallsOncePerStartIfAskedTo) {
    const int32_t timer = GetParam().request(20'000, calls_, 256);
    for (int start = 1; start <= 2; ++start) {
        const auto begin = Clock::now();
        EXPECT_EQ(pthread_start_timer(timer), 0);
        EXPECT_TRUE(wait_until([&] { return calls_.count == start; }));
        EXPECT_GE(Clock::now() - begin, 20ms);
        EXPECT_TRUE(calls_.stands_still(100ms));
    }
    EXPECT_EQ(pthread_free_timer(timer), 0);
}

TEST_F(RealTimeTimer, HasAThreadOfItsOwn) {
    static size_t stack_size;
    Calls calls[2];
    calls[0].act = [](int) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stack_size);
        pthread_attr_destroy(&attributes);
    };
    ASSERT_EQ(request_own_thread(2000, calls[0]), 0);
    ASSERT_EQ(pthread_request_timer(2000, nullptr, note_call, &calls[1], 1, 31, 0), 1);
    for (const int32_t row : {0, 1}) {
        EXPECT_EQ(pthread_start_timer(row), 0);
        EXPECT_TRUE(calls[row].goes_on());
        EXPECT_EQ(calls[row].index, row);
        EXPECT_EQ(calls[row].policy, SCHED_FIFO);
        EXPECT_EQ(calls[row].priority, row == 0 ? kPriority : 31);
    }
    EXPECT_NE(calls[0].thread, calls[1].thread);
    EXPECT_NE(calls[0].thread, gettid());
    EXPECT_EQ(pthread_stop_timer(0), 0);
    EXPECT_TRUE(calls[1].goes_on());
    EXPECT_EQ(pthread_free_timer(0), 0);
    EXPECT_EQ(pthread_free_timer(1), 0);
    EXPECT_GE(stack_size, kBigStack + 16384);
    if (!test::sanitized()) {
        EXPECT_EQ(stack_size, kBigStack + 16384);
    }
}

// Which looks for its end twice a second.
TEST_F(RealTimeTimer, IsFreedTogetherWithItsThread) {
    const auto threads = test::thread_count();
    std::chrono::nanoseconds quickest = 1h;
    for (const bool started : {false, true}) {
        auto calls = std::make_unique<Calls>();
        const int32_t timer = request_own_thread(500, *calls);
        EXPECT_EQ(test::thread_count(), threads + 1);
        if (started) {
            EXPECT_EQ(pthread_start_timer(timer), 0);
            EXPECT_TRUE(calls->goes_on());
        }
        quickest =
            std::min(quickest, test::time_of([=] { EXPECT_EQ(pthread_free_timer(timer), 0); }));
        calls.reset();  // a late call would touch freed memory
        EXPECT_TRUE(wait_until([=] { return test::thread_count() == threads; }));
        EXPECT_EQ(pthread_start_timer(timer), -1);
    }
    EXPECT_LT(quickest, 1s);
}

// Its slot, not its row, is what it calls with.
TEST_F(RealTimeTimer, TicksFromItsRequestOnIfItIsSimulated) {
    Calls calls[2];
    EXPECT_EQ(request_signal_timer(1'000'000, calls[0]), 0);
    EXPECT_EQ(request_simulated(1000, calls[0]), 1);
    EXPECT_EQ(request_simulated(1000, calls[1]), 2);
    for (const int slot : {0, 1}) {
        EXPECT_TRUE(calls[slot].goes_on());
        EXPECT_EQ(calls[slot].index, slot);
        EXPECT_EQ(calls[slot].policy, SCHED_FIFO);
        EXPECT_EQ(calls[slot].priority, 51);
    }
    EXPECT_EQ(calls[0].thread, calls[1].thread);
    for (const auto without_effect : {pthread_stop_timer, pthread_start_timer}) {
        EXPECT_EQ(without_effect(1), 0);
        EXPECT_TRUE(calls[0].goes_on(10));
    }
    for (int32_t row = 0; row < 3; ++row) {
        EXPECT_EQ(pthread_free_timer(row), 0);
    }
}

TEST_F(RealTimeTimer, WaitsForARunningCallWhenItIsFreed) {
    for (int round = 0; round < 20; ++round) {
        auto calls = std::make_unique<Calls>();
        std::atomic<bool> inside{false};
        calls->act = [&inside](int) {
            inside = true;
            std::this_thread::sleep_for(2ms);
            inside = false;
        };
        const int32_t timer = request_simulated(500, *calls);
        ASSERT_EQ(timer, 0);
        ASSERT_TRUE(calls->goes_on(1));
        ASSERT_EQ(pthread_free_timer(timer), 0);
        EXPECT_FALSE(inside) << "a running call is waited for";
        EXPECT_TRUE(calls->stands_still(5ms));
        EXPECT_EQ(calls->index, 0) << "the slot was given back too";
        calls.reset();  // a late call would touch freed memory
    }
}

TEST_F(RealTimeTimer, WaitsHalfASecondAtMostForACallThatNeedsWhatTheFreeingThreadHolds) {
    std::mutex held;
    std::atomic<bool> inside{false};
    Calls calls;
    calls.act = [&](int) {
        inside = true;
        held.lock();
        held.unlock();
        inside = false;
    };
    held.lock();
    const int32_t timer = request_simulated(500, calls);
    ASSERT_TRUE(wait_until([&] { return inside.load(); }));
    const auto waited = test::time_of([=] { EXPECT_EQ(pthread_free_timer(timer), 0); });
    EXPECT_GE(waited, 400ms);
    EXPECT_LT(waited, 5s);
    EXPECT_TRUE(inside);
    held.unlock();
    EXPECT_TRUE(wait_until([&] { return !inside; }));
    EXPECT_TRUE(calls.stands_still(5ms)) << "that call was the last";
}

// The timer's third call frees it; a new one may take its row at once.
TEST_F(RealTimeTimer, MayBeFreedByItsOwnCall) {
    const auto threads = test::thread_count();
    for (const Request request : {request_own_thread, request_simulated}) {
        for (int round = 0; round < 3; ++round) {
            Calls calls;
            std::atomic<int32_t> freed{-1};
            calls.act = [&](int call) {
                if (call == 3) {
                    freed = pthread_free_timer(0);
                }
            };
            ASSERT_EQ(request(1000, calls, 0), 0);
            ASSERT_EQ(pthread_start_timer(0), 0);
            ASSERT_TRUE(wait_until([&] { return freed == 0; }));
            Calls next;
            ASSERT_EQ(request(1000, next, 0), 0);
            ASSERT_EQ(pthread_start_timer(0), 0);
            EXPECT_TRUE(next.goes_on());
            EXPECT_EQ(pthread_free_timer(0), 0);
            EXPECT_EQ(calls.count, 3);
            EXPECT_TRUE(wait_until([=] { return test::thread_count() <= threads + 1; }));
        }
    }
}

// Calls of a timer over a span by the clock, against what the period lets one expect.
void expect_calls_by_the_clock(Calls& calls, std::chrono::nanoseconds period, Clock::duration span,
                               double least) {
    ASSERT_TRUE(calls.goes_on(1));
    const auto begin = Clock::now();
    const int before = calls.count;
    while (Clock::now() - begin < span) {
        std::this_thread::sleep_for(10ms);
    }
    const int made = calls.count - before;
    const auto expected = static_cast<double>((Clock::now() - begin) / period);
    EXPECT_LE(made, expected + 2) << "too fast";
    EXPECT_GE(made, expected * least - 2) << "too slow";
}

// Signals that interrupt the thread's sleep, several in each tick, must not make it call early.
TEST_F(RealTimeTiming, PeriodsAreKept) {
    const struct {
        Request request;
        uint32_t period_us;
        std::chrono::nanoseconds effective;
    } cases[] = {
        {request_own_thread, 1000, 1ms},       {request_simulated, 1000, 1ms},
        {request_simulated, 100, 500us},       {request_simulated, 1700, 1500us},
        {request_simulated, 4'294'968, 500us},  // beyond the wrap of 32-bit nanoseconds by 704
    };
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    for (const auto& [request, period_us, effective] : cases) {
        Calls calls;
        ASSERT_EQ(request(period_us, calls, 0), 0);
        ASSERT_EQ(pthread_start_timer(0), 0);
        ASSERT_TRUE(calls.goes_on(1));
        std::atomic<bool> done{false};
        std::thread disturber([&] {
            while (!done) {
                tgkill(getpid(), calls.thread, SIGUSR1);
                std::this_thread::sleep_for(100us);
            }
        });
        expect_calls_by_the_clock(calls, effective, 500ms, 0.8);
        done = true;
        disturber.join();
        EXPECT_EQ(pthread_free_timer(0), 0);
    }
    Calls calls;
    ASSERT_EQ(request_simulated(4'294'967, calls), 0);
    EXPECT_TRUE(calls.stands_still(300ms)) << "just before the wrap";
    EXPECT_EQ(pthread_free_timer(0), 0);
}

TEST_F(RealTimeTiming, MissedCallsAreNotCaughtUpWith) {
    for (const Request request : {request_simulated, request_own_thread}) {
        Calls calls;
        std::atomic<bool> slow_call_over{false};
        calls.act = [&](int call) {
            if (call == 5) {
                std::this_thread::sleep_for(200ms);  // 100 periods
                slow_call_over = true;
            }
        };
        ASSERT_EQ(request(2000, calls, 0), 0);
        ASSERT_EQ(pthread_start_timer(0), 0);
        ASSERT_TRUE(wait_until([&] { return slow_call_over.load(); }));
        expect_calls_by_the_clock(calls, 2ms, 50ms, 0);
        ASSERT_EQ(pthread_free_timer(0), 0);
    }
}

TEST_F(RealTimeTimer, LeavesNeitherRowNorThreadWhenItIsRefused) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    const auto threads = test::thread_count();
    Calls calls;
    EXPECT_EQ(pthread_request_timer(1000, nullptr, nullptr, nullptr, kBigStack, kPriority, 0), -1);
    for (const int32_t wrong_priority : {0, -1, 100}) {
        EXPECT_EQ(pthread_request_timer(1000, nullptr, note_call, &calls, 16384, wrong_priority, 0),
                  -1);
    }
    EXPECT_EQ(test::thread_count(), threads);
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    EXPECT_EQ(request_signal_timer(1000, calls), -1);
    EXPECT_EQ(request_own_thread(1000, calls), -1);
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &limit), 0);
    EXPECT_TRUE(wait_until([=] { return test::thread_count() == threads; }));
    EXPECT_EQ(request_signal_timer(1000, calls), 0);
    EXPECT_EQ(pthread_free_timer(0), 0);
}

}  // namespace
