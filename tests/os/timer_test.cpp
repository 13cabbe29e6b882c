#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "os/os.h"
#include "tests/os/support.h"
#include "tests/support/process.h"

namespace {

using namespace std::chrono_literals;
using test::Clock;
using test::wait_until;

constexpr uint32_t big_stack = 262144;
constexpr int32_t priority = 20;

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

std::atomic<int> alarms{0};
void count_alarm(int signal_number) {
    alarms += signal_number == SIGALRM ? 1 : 1000000;
}

int32_t request_signal_timer(uint32_t period_us, uint32_t one_shot = 0) {
    return pthread_request_timer(period_us, count_alarm, nullptr, nullptr, 0, 0, one_shot);
}

int32_t request_own_thread(uint32_t period_us, Calls& calls, uint32_t one_shot = 0) {
    return pthread_request_timer(period_us, nullptr, note_call, &calls, big_stack, priority,
                                 one_shot);
}

int32_t request_simulated(uint32_t period_us, Calls& calls) {
    return pthread_request_timer(period_us, nullptr, note_call, &calls, 0, 0, 0);
}

int thread_count() {
    const std::string status = test::read_file("/proc/self/status");
    return std::stoi(status.substr(status.find("Threads:") + 8));
}

// Of timers that call on real-time threads.
class RealTimeTimer : public testing::Test {
protected:
    void SetUp() override {
        if (!test::may_run_realtime()) {
            GTEST_SKIP() << "no right to real-time scheduling";
        }
    }
};
class OwnThreadTimer : public RealTimeTimer {};
class SimulatedTimer : public RealTimeTimer {};
class RefusedTimer : public RealTimeTimer {};
class RealTimeTiming : public RealTimeTimer {};

// By signal

TEST(SignalTimer, RunsTheHandlerWhileItIsStarted) {
    const int32_t timer = request_signal_timer(2000);
    ASSERT_EQ(timer, 0);
    const auto handler_runs = [target = alarms + 5] { return alarms >= target; };
    EXPECT_FALSE(wait_until(handler_runs, 50ms)) << "not armed by the request";
    EXPECT_EQ(pthread_start_timer(timer), 0);
    EXPECT_TRUE(wait_until(handler_runs));
    EXPECT_EQ(pthread_stop_timer(timer), 0);
    const int stopped_at = alarms;
    EXPECT_FALSE(wait_until([=] { return alarms > stopped_at + 1; }, 50ms));
    EXPECT_EQ(pthread_start_timer(timer), 0);
    EXPECT_TRUE(wait_until([=] { return alarms > stopped_at + 5; }));
    EXPECT_EQ(pthread_free_timer(timer), 0);
}

TEST(SignalTimer, SharesOneHandler) {
    static std::atomic<int> later_alarms;
    const int32_t first = request_signal_timer(5000);
    const int32_t second = pthread_request_timer(
        1'000'000'000, [](int) { ++later_alarms; }, nullptr, nullptr, 0, 0, 0);
    EXPECT_EQ(pthread_start_timer(first), 0);
    EXPECT_TRUE(wait_until([] { return later_alarms >= 3; }));
    EXPECT_EQ(alarms, 0);
    EXPECT_EQ(pthread_free_timer(first), 0);
    EXPECT_EQ(pthread_free_timer(second), 0);
}

TEST(SignalTimer, FiresOnceIfAskedTo) {
    const int32_t timer = request_signal_timer(20'000, 256);
    const auto begin = Clock::now();
    EXPECT_EQ(pthread_start_timer(timer), 0);
    EXPECT_TRUE(wait_until([] { return alarms >= 1; }));
    EXPECT_GE(Clock::now() - begin, 20ms);
    EXPECT_FALSE(wait_until([] { return alarms > 1; }, 100ms));
    EXPECT_EQ(pthread_free_timer(timer), 0);
}

TEST(SignalTimer, NeedsAHandler) {
    EXPECT_EQ(pthread_request_timer(1000, nullptr, nullptr, nullptr, big_stack, priority, 0), -1);
    EXPECT_EQ(request_signal_timer(1000), 0) << "the row is free again";
    EXPECT_EQ(pthread_free_timer(0), 0);
}

// By a thread of its own

TEST_F(OwnThreadTimer, CallsBackOnItsOwnRealTimeThread) {
    Calls calls[2];
    const int32_t first = request_own_thread(2000, calls[0]);
    const int32_t second = pthread_request_timer(2000, nullptr, note_call, &calls[1], 1, 31, 0);
    ASSERT_EQ(first, 0);
    ASSERT_EQ(second, 1);
    EXPECT_TRUE(calls[0].stands_still()) << "not armed by the request";
    EXPECT_EQ(pthread_start_timer(first), 0);
    EXPECT_EQ(pthread_start_timer(second), 0);
    EXPECT_TRUE(calls[0].goes_on());
    EXPECT_TRUE(calls[1].goes_on());
    for (const int32_t row : {first, second}) {
        EXPECT_EQ(calls[row].index, row);
        EXPECT_EQ(calls[row].policy, SCHED_FIFO);
        EXPECT_EQ(calls[row].priority, row == first ? priority : 31);
    }
    EXPECT_NE(calls[0].thread, calls[1].thread);
    EXPECT_NE(calls[0].thread, gettid());

    EXPECT_EQ(pthread_stop_timer(first), 0);
    wait_until([] { return false; }, 20ms);  // an expiry under way may still call
    EXPECT_TRUE(calls[0].stands_still());
    EXPECT_TRUE(calls[1].goes_on());
    EXPECT_EQ(pthread_start_timer(first), 0);
    EXPECT_TRUE(calls[0].goes_on());
    EXPECT_EQ(pthread_free_timer(first), 0);
    EXPECT_EQ(pthread_free_timer(second), 0);
}

TEST_F(OwnThreadTimer, HasTheStackItAsksForAndMore) {
    static size_t stack_size;
    Calls calls;
    calls.act = [](int) {
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stack_size);
        pthread_attr_destroy(&attributes);
    };
    const int32_t timer = request_own_thread(1000, calls);
    EXPECT_EQ(pthread_start_timer(timer), 0);
    EXPECT_TRUE(calls.goes_on());
    EXPECT_EQ(pthread_free_timer(timer), 0);
    EXPECT_GE(stack_size, big_stack + 16384);
    if (!test::sanitized()) {
        EXPECT_EQ(stack_size, big_stack + 16384);
    }
}

TEST_F(OwnThreadTimer, FiresOncePerStartIfAskedTo) {
    Calls calls;
    const int32_t timer = request_own_thread(20'000, calls, 1);
    for (int start = 1; start <= 2; ++start) {
        const auto begin = Clock::now();
        EXPECT_EQ(pthread_start_timer(timer), 0);
        EXPECT_TRUE(wait_until([&] { return calls.count == start; }));
        EXPECT_GE(Clock::now() - begin, 20ms);
        EXPECT_TRUE(calls.stands_still(100ms));
    }
    EXPECT_EQ(pthread_free_timer(timer), 0);
}

// The default action of the alarm signal would end the process.
TEST_F(OwnThreadTimer, WorksWhateverMaskItsCreatorHas) {
    sigset_t alarm;
    sigemptyset(&alarm);
    sigaddset(&alarm, SIGALRM);
    for (const int how : {SIG_UNBLOCK, SIG_BLOCK}) {
        Calls calls;
        pthread_sigmask(how, &alarm, nullptr);
        const int32_t timer = request_own_thread(1000, calls);
        sigset_t mask;
        pthread_sigmask(SIG_SETMASK, nullptr, &mask);
        EXPECT_EQ(sigismember(&mask, SIGALRM), how == SIG_BLOCK ? 1 : 0) << "left as it was";
        EXPECT_EQ(pthread_start_timer(timer), 0);
        EXPECT_TRUE(calls.goes_on());
        EXPECT_EQ(pthread_free_timer(timer), 0);
    }
}

TEST_F(OwnThreadTimer, IsFreedTogetherWithItsThread) {
    const int threads = thread_count();
    for (const bool started : {false, true}) {
        auto calls = std::make_unique<Calls>();
        const int32_t timer = request_own_thread(500, *calls);
        EXPECT_EQ(thread_count(), threads + 1);
        if (started) {
            EXPECT_EQ(pthread_start_timer(timer), 0);
            EXPECT_TRUE(calls->goes_on());
        }
        EXPECT_LT(test::time_of([=] { EXPECT_EQ(pthread_free_timer(timer), 0); }), 3s);
        calls.reset();  // a late call would touch freed memory
        EXPECT_TRUE(wait_until([=] { return thread_count() == threads; }));
        EXPECT_EQ(pthread_start_timer(timer), -1);
    }
}

TEST_F(OwnThreadTimer, NeedsAPriorityForRealTime) {
    const int threads = thread_count();
    Calls calls;
    for (const int32_t refused : {0, -1, 100}) {
        EXPECT_EQ(pthread_request_timer(1000, nullptr, note_call, &calls, 16384, refused, 0), -1);
    }
    EXPECT_EQ(thread_count(), threads);
    EXPECT_EQ(request_own_thread(1000, calls), 0);
    EXPECT_EQ(pthread_free_timer(0), 0);
}

// Simulated

TEST_F(SimulatedTimer, TicksFromItsRequestOnWhateverStartAndStopSay) {
    Calls calls;
    const int32_t timer = request_simulated(1000, calls);
    ASSERT_EQ(timer, 0);
    EXPECT_TRUE(calls.goes_on());
    EXPECT_EQ(calls.policy, SCHED_FIFO);
    EXPECT_EQ(calls.priority, 51);
    EXPECT_EQ(pthread_stop_timer(timer), 0);
    EXPECT_TRUE(calls.goes_on(10));
    EXPECT_EQ(pthread_start_timer(timer), 0);
    EXPECT_TRUE(calls.goes_on(10));
    EXPECT_EQ(pthread_free_timer(timer), 0);
}

TEST_F(SimulatedTimer, CallsWithItsSlotNotItsRow) {
    Calls calls[2];
    const int32_t other = request_signal_timer(1'000'000);
    const int32_t first = request_simulated(1000, calls[0]);
    const int32_t second = request_simulated(1000, calls[1]);
    EXPECT_EQ(other, 0);
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 2);
    EXPECT_TRUE(calls[0].goes_on());
    EXPECT_TRUE(calls[1].goes_on());
    EXPECT_EQ(calls[0].index, 0);
    EXPECT_EQ(calls[1].index, 1);
    EXPECT_EQ(calls[0].thread, calls[1].thread);
    for (const int32_t timer : {other, first, second}) {
        EXPECT_EQ(pthread_free_timer(timer), 0);
    }
}

TEST_F(SimulatedTimer, StopsCallingWhenItIsFreed) {
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

// Real-time callbacks that free timers.

class FreedByACallback : public RealTimeTimer {
protected:
    // The timer's third call frees it; a new one may take its row at once.
    static void check(int32_t (*request)(Calls&)) {
        const int threads = thread_count();
        for (int round = 0; round < 3; ++round) {
            Calls calls;
            std::atomic<int32_t> freed{-1};
            calls.act = [&](int call) {
                if (call == 3) {
                    freed = pthread_free_timer(0);
                }
            };
            ASSERT_EQ(request(calls), 0);
            ASSERT_EQ(pthread_start_timer(0), 0);
            ASSERT_TRUE(wait_until([&] { return freed == 0; }));
            Calls next;
            ASSERT_EQ(request(next), 0);
            ASSERT_EQ(pthread_start_timer(0), 0);
            EXPECT_TRUE(next.goes_on());
            EXPECT_EQ(pthread_free_timer(0), 0);
            EXPECT_EQ(calls.count, 3);
            EXPECT_TRUE(wait_until([=] { return thread_count() <= threads + 1; }));
        }
    }
};

TEST_F(FreedByACallback, OwnThreadTimer) {
    check([](Calls& calls) { return request_own_thread(1000, calls); });
}

TEST_F(FreedByACallback, SimulatedTimer) {
    check([](Calls& calls) { return request_simulated(1000, calls); });
}

// Over time

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

TEST_F(RealTimeTiming, SimulatedTimersKeepToTheirGrid) {
    Calls calls[3];
    const uint32_t periods_us[] = {1000, 100, 1700};
    const std::chrono::nanoseconds effective[] = {1ms, 500us, 1500us};
    for (int i = 0; i < 3; ++i) {
        ASSERT_EQ(request_simulated(periods_us[i], calls[i]), i);
    }
    // Signals that interrupt the thread's sleep, several in each tick, must not make it tick early.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGUSR1, &action, nullptr);
    ASSERT_TRUE(calls[0].goes_on(1));
    std::atomic<bool> done{false};
    std::thread disturber([&] {
        while (!done) {
            tgkill(getpid(), calls[0].thread, SIGUSR1);
            std::this_thread::sleep_for(100us);
        }
    });
    for (int i = 0; i < 3; ++i) {
        expect_calls_by_the_clock(calls[i], effective[i], 1s, 0.9);
    }
    done = true;
    disturber.join();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(pthread_free_timer(i), 0);
    }
}

TEST_F(RealTimeTiming, SimulatedPeriodsWrapAroundIn32BitNanoseconds) {
    Calls calls;
    ASSERT_EQ(request_simulated(4'294'968, calls), 0);  // 704 ns after the wrap: every tick
    expect_calls_by_the_clock(calls, 500us, 300ms, 0.8);
    EXPECT_EQ(pthread_free_timer(0), 0);
    ASSERT_EQ(request_simulated(4'294'967, calls), 0);
    EXPECT_TRUE(calls.stands_still(300ms));
    EXPECT_EQ(pthread_free_timer(0), 0);
}

TEST_F(RealTimeTiming, OwnThreadTimersKeepTime) {
    Calls calls;
    ASSERT_EQ(request_own_thread(1000, calls), 0);
    ASSERT_EQ(pthread_start_timer(0), 0);
    expect_calls_by_the_clock(calls, 1ms, 1s, 0.9);
    EXPECT_EQ(pthread_free_timer(0), 0);
}

TEST_F(RealTimeTiming, MissedCallsAreNotCaughtUpWith) {
    int32_t (*const requests[])(uint32_t, Calls&) = {
        request_simulated,
        [](uint32_t period_us, Calls& calls) { return request_own_thread(period_us, calls); }};
    for (const auto request : requests) {
        Calls calls;
        std::atomic<bool> slow_call_over{false};
        std::vector<Clock::time_point> after;
        after.reserve(100000);
        calls.act = [&](int call) {
            if (call == 5) {
                std::this_thread::sleep_for(200ms);  // 100 periods
                slow_call_over = true;
            }
            after.push_back(Clock::now());
        };
        ASSERT_EQ(request(2000, calls), 0);
        ASSERT_EQ(pthread_start_timer(0), 0);
        ASSERT_TRUE(wait_until([&] { return slow_call_over.load(); }));
        ASSERT_TRUE(calls.goes_on(50));
        ASSERT_EQ(pthread_free_timer(0), 0);
        const auto end_of_slow_call = after[4];
        const auto soon = std::count_if(after.begin() + 5, after.end(), [&](Clock::time_point at) {
            return at - end_of_slow_call < 20ms;
        });
        EXPECT_LE(soon, 20 / 2 + 2);
    }
}

// Refused by the system

TEST_F(RefusedTimer, LeavesNeitherRowNorThreadWithoutRoomForItsSignal) {
    rlimit limit{};
    ASSERT_EQ(getrlimit(RLIMIT_SIGPENDING, &limit), 0);
    const rlimit none{0, limit.rlim_max};
    const int threads = thread_count();
    Calls calls;
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &none), 0);
    EXPECT_EQ(request_signal_timer(1000), -1);
    EXPECT_EQ(request_own_thread(1000, calls), -1);
    ASSERT_EQ(setrlimit(RLIMIT_SIGPENDING, &limit), 0);
    EXPECT_TRUE(wait_until([=] { return thread_count() == threads; }));
    EXPECT_EQ(request_signal_timer(1000), 0);
    EXPECT_EQ(pthread_free_timer(0), 0);
}

TEST_F(RefusedTimer, LeavesNoRowWithoutTheRightToRealTime) {
    EXPECT_EQ(test::in_child([] {
                  const rlimit none{0, 0};
                  if (setrlimit(RLIMIT_RTPRIO, &none) != 0 || !test::drop_privileges()) {
                      return 2;
                  }
                  Calls calls;
                  const bool refused =
                      request_own_thread(1000, calls) == -1 && request_simulated(1000, calls) == -1;
                  return refused && request_signal_timer(1000) == 0 ? 0 : 1;
              }),
              0);
}

}  // namespace
