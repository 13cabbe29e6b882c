// Lateness of a 500 µs tick: the simulated timer's callback beside cyclictest's thread.
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <ctime>
#include <memory>
#include <mutex>

#include "bench/machine.h"
#include "bench/waits/pairs.h"
#include "os/timer.h"

namespace bench {

namespace {

// 30 s in slices, so that both sides see the same weather.
constexpr int kSlices = 6;
constexpr unsigned kSliceSeconds = 5;
constexpr uint32_t kPeriodMicroseconds = 500;

// The instant that the timer's thread slept for.
std::atomic<int64_t> due{0};

struct Ticks {
    std::mutex mutex;
    std::vector<double> lateness;
};

void note_lateness(uint32_t, void* arg) {
    const int64_t late = now_ns() - due.load(std::memory_order_relaxed);
    auto& ticks = *static_cast<Ticks*>(arg);
    const std::lock_guard lock(ticks.mutex);
    ticks.lateness.push_back(static_cast<double>(late) / 1000);
}

Measure library() {
    return [] {
        Ticks ticks;
        ticks.lateness.reserve(kSliceSeconds * 1'000'000 / kPeriodMicroseconds + 100);
        const int32_t timer =
            pthread_request_timer(kPeriodMicroseconds, nullptr, note_lateness, &ticks, 0, 51, 0);
        require(timer >= 0, "no timer: the process needs the right to real-time scheduling");
        sleep(kSliceSeconds);
        pthread_free_timer(timer);
        return Round{ticks.lateness, 0};
    };
}

// Its histogram in nanoseconds: a line for each value, "<value> <count>".
Round run_cyclictest() {
    char command[256];
    std::snprintf(command, sizeof command,
                  "cyclictest --quiet --default-system --threads=1 --policy=fifo --priority=51 "
                  "--interval=%u --duration=%u --nsecs --histogram=1000000 2>&1",
                  kPeriodMicroseconds, kSliceSeconds);
    FILE* const output = popen(command, "r");
    require(output != nullptr, "no cyclictest");
    Round round;
    char line[256];
    while (std::fgets(line, sizeof line, output) != nullptr) {
        double value = 0;
        unsigned count = 0;
        if (std::sscanf(line, "# Max Latencies: %lf", &value) == 1 && value >= 1e6) {
            round.values.push_back(value / 1000);  // beyond the histogram
        } else if (line[0] != '#' && std::sscanf(line, "%lf %u", &value, &count) == 2) {
            round.values.insert(round.values.end(), count, value / 1000);
        }
    }
    require(pclose(output) == 0 && !round.values.empty(), "cyclictest failed");
    return round;
}

Measure limit() {
    return run_cyclictest;
}

}  // namespace

std::vector<Pair> tick_pairs() {
    return {{"simulated timer, 500 µs tick",
             "µs",
             library,
             limit,
             {{"p99", p99, 1.15}, {"max", largest, 1.15}},
             kSlices,
             "ticks.svg"}};
}

}  // namespace bench

// Stands before the C library's function of this name, so that the instant that the timer's thread
// waits for is known.
extern "C" int clock_nanosleep(clockid_t clock, int flags, const timespec* request,
                               timespec* remaining) {
    if (flags == TIMER_ABSTIME) {
        bench::due.store(int64_t{request->tv_sec} * 1'000'000'000 + request->tv_nsec,
                         std::memory_order_relaxed);
    }
    return syscall(SYS_clock_nanosleep, clock, flags, request, remaining) == 0 ? 0 : errno;
}
