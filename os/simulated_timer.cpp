#include "os/simulated_timer.h"

#include <cerrno>

#include "base/deadline.h"
#include "base/thread.h"
#include "os/tables.h"

namespace vexo {

namespace {

constexpr uint32_t kTickNs = 500'000;
constexpr ThreadPlan kSimulationPlan = {16384, SCHED_FIFO, 51};
constexpr int32_t kNoSlot = -1;
constexpr uint64_t kLongestWaitNs = 500'000'000;

pthread_t timersimuthread;
std::atomic<uint32_t> timersimuthreadid;  // 0 until the thread runs

// The slot that the thread looks at or calls back for. It is published before the slot's flag is
// read, and looked at after the flag is cleared, so that of the thread and whoever frees the slot
// at least one sees the other.
std::atomic<int32_t> busy_slot = kNoSlot;

void tick(int32_t slot) {
    SimulatedTimer& timer = simulated_timers[slot];
    if (++timer.ticks % timer.divider != 0) {
        return;
    }
    timer.ticks = 0;
    // The callback may free the slot, and it may be taken again at once: not touched afterwards.
    if (timer.callback != nullptr) {
        timer.callback(static_cast<uint32_t>(slot), timer.arg);
    }
}

void tick_all() {
    for (int32_t slot = 0; slot < simulated_timers.size(); ++slot) {
        busy_slot = slot;
        if (simulated_timers.in_use(slot)) {
            tick(slot);
        }
        busy_slot = kNoSlot;
    }
}

// The next tick of the grid after now: missed ones are skipped.
timespec next_tick(timespec tick_time) {
    const timespec now = monotonic_now();
    do {
        tick_time = plus(tick_time, kTickNs);
    } while (later(now, tick_time));
    return tick_time;
}

void* simulate(void*) {
    timersimuthreadid = kernel_thread_id();
    timersimuthreadid.notify_all();
    timespec tick_time = plus(monotonic_now(), kTickNs);
    for (;;) {
        while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &tick_time, nullptr) == EINTR) {
        }
        tick_all();
        tick_time = next_tick(tick_time);
    }
}

// Waits for a running callback of the slot, but not for ever: the caller may hold what it waits
// for.
void wait_for_callback(int32_t slot) {
    constexpr timespec kPause = {0, kTickNs};
    const timespec deadline = plus(monotonic_now(), kLongestWaitNs);
    while (busy_slot == slot && !later(monotonic_now(), deadline)) {
        clock_nanosleep(CLOCK_MONOTONIC, 0, &kPause, nullptr);
    }
}

}  // namespace

bool start_simulation() {
    if (timersimuthreadid != 0) {
        return true;
    }
    if (!start_thread(timersimuthread, kSimulationPlan, simulate, nullptr)) {
        return false;
    }
    timersimuthreadid.wait(0);
    pthread_detach(timersimuthread);
    return true;
}

bool request_simulated_timer(uint32_t period_us, TimerCallback callback, void* arg,
                             uint32_t& slot) {
    const int32_t lowest = simulated_timers.lowest_free();
    if (lowest < 0) {
        return false;
    }
    slot = static_cast<uint32_t>(lowest);
    const uint32_t period_ns = period_us * 1000;  // wraps around: documented
    const uint32_t divider = period_ns < kTickNs ? 1 : period_ns / kTickNs;
    simulated_timers[lowest] = {divider, 0, callback, arg};
    simulated_timers.mark(lowest);
    return true;
}

int32_t free_simulated_timer(int32_t slot) {
    return simulated_timers.on_row(slot, kRefuseFreeRow, [slot](SimulatedTimer&) {
        simulated_timers.release(slot);
        if (timersimuthreadid != kernel_thread_id()) {
            wait_for_callback(slot);
        }
        return 0;
    });
}

}  // namespace vexo
