#include "tools/vexo/doctor/run.h"

#include <algorithm>
#include <ctime>

#include "tools/vexo/doctor/counters.h"
#include "tools/vexo/doctor/stream_run.h"
#include "tools/vexo/doctor/wake_up_run.h"

namespace doctor {
namespace {

constexpr int kClockReadings = 1000;

double clock_us(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

// The three clocks at one moment.
struct Clocks {
    double wall = clock_us(CLOCK_REALTIME);
    double monotonic = clock_us(CLOCK_MONOTONIC);
    double bare = clock_us(CLOCK_MONOTONIC_RAW);
};

// Read several times, the quickest reading counts: in between the thread may be stopped.
Clocks read_clocks() {
    Clocks best;
    for (int i = 0; i < 20; ++i) {
        const Clocks clocks;
        if (clocks.bare - clocks.wall < best.bare - best.wall || i == 0) {
            best = clocks;
        }
    }
    return best;
}

// What a reading takes: the least of some rounds, since others want the processor, too.
double clock_read_ns() {
    double least = 1e12;
    for (int round = 0; round < 5; ++round) {
        const double begin = clock_us(CLOCK_MONOTONIC_RAW);
        for (int i = 0; i < kClockReadings; ++i) {
            clock_us(CLOCK_MONOTONIC);
        }
        const double span = clock_us(CLOCK_MONOTONIC_RAW) - begin;
        least = std::min(least, span * 1000 / kClockReadings);
    }
    return least;
}

// A session of our own would end one that another program on this host holds.
Purpose stream_purpose(const Facts& facts) {
    Purpose purpose = facts.purpose;
    if (held_elsewhere(facts)) {
        purpose.controller.clear();
    }
    return purpose;
}

}  // namespace

Run make_run(const Tree& tree, const Facts& facts, double seconds, double limit_s,
             const Wait& wait) {
    Run run;
    const Counters before = read_counters(tree, facts);
    const StreamRun stream(stream_purpose(facts), limit_s);
    const Clocks begin = read_clocks();
    {
        WakeUpRun wake_ups(facts.cpu.loop, seconds);
        wait(seconds);
        run.wake_ups = wake_ups.finish();
    }
    const Clocks end = read_clocks();
    const Counters after = read_counters(tree, facts);
    run.stream = held_elsewhere(facts)
                     ? Fact<Stream>::unknown("another program on this host holds the controller")
                     : stream.figures();

    run.seconds = (end.monotonic - begin.monotonic) / 1e6;
    run.clock_step_us = (end.wall - begin.wall) - (end.monotonic - begin.monotonic);
    run.clock_slew_ppm = ((end.monotonic - begin.monotonic) / (end.bare - begin.bare) - 1) * 1e6;
    run.growth = growth(before, after);
    run.busy_threads = busy_threads(before, after, run.seconds, facts.cpu.loop);
    if (run.wake_ups.known()) {
        WakeUps figures = *run.wake_ups;
        figures.clock_read_ns = clock_read_ns();
        run.wake_ups = figures;
    }
    return run;
}

}  // namespace doctor
