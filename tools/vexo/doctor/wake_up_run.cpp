#include "tools/vexo/doctor/wake_up_run.h"

#include <pthread.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>
#include <ctime>

#include "tools/vexo/doctor/predicates.h"

namespace doctor {
namespace {

constexpr int64_t kSecond = 1'000'000'000;
constexpr int64_t kPeriod = 1'000'000;

int64_t now_ns() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * kSecond + now.tv_nsec;
}

void sleep_until(int64_t instant) {
    const timespec time{instant / kSecond, instant % kSecond};
    while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &time, nullptr) == EINTR) {
    }
}

double percentile(const std::vector<int64_t>& sorted, double fraction) {
    const auto place =
        static_cast<size_t>(std::ceil(fraction * static_cast<double>(sorted.size())));
    return static_cast<double>(sorted[std::max<size_t>(place, 1) - 1]) / 1000;
}

WakeUps figures_of(std::vector<int64_t>& late_ns) {
    WakeUps figures;
    figures.count = static_cast<int64_t>(late_ns.size());
    std::sort(late_ns.begin(), late_ns.end());
    if (!late_ns.empty()) {
        figures.p50_us = percentile(late_ns, 0.5);
        figures.p99_us = percentile(late_ns, 0.99);
        figures.p99_9_us = percentile(late_ns, 0.999);
        figures.max_us = percentile(late_ns, 1);
    }
    for (const int64_t one : late_ns) {
        figures.late_us += std::max(0.0, static_cast<double>(one) / 1000 - kWakeUpLimit);
    }
    return figures;
}

}  // namespace

struct WakeUpRun::State {
    pthread_t thread{};
    int error = 0;  // of starting it
    int processor = 0;
    std::vector<int64_t> late_ns;  // room for all is made and touched before
    std::atomic<size_t> count{0};
    std::atomic<int64_t> missed{0};
    std::atomic<int64_t> priority{0};
    std::atomic<bool> stop{false};
    int64_t begin_ns = 0;

    void prepare();
    void loop();
    static void* run(void* argument);
};

void WakeUpRun::State::prepare() {
    cpu_set_t processors;
    CPU_ZERO(&processors);
    CPU_SET(static_cast<size_t>(processor), &processors);
    pthread_setaffinity_np(pthread_self(), sizeof processors, &processors);
    prctl(PR_SET_TIMERSLACK, 1UL);
    const sched_param parameter{.sched_priority = kLoopPriority};
    if (pthread_setschedparam(pthread_self(), SCHED_FIFO, &parameter) == 0) {
        priority = kLoopPriority;
    }
}

void WakeUpRun::State::loop() {
    int64_t due = now_ns() + kPeriod;
    while (!stop && count < late_ns.size()) {
        sleep_until(due);
        const int64_t now = now_ns();
        late_ns[count] = now - due;
        ++count;
        for (due += kPeriod; due <= now; due += kPeriod) {
            ++missed;
        }
    }
}

void* WakeUpRun::State::run(void* argument) {
    const std::unique_ptr<std::shared_ptr<State>> state(
        static_cast<std::shared_ptr<State>*>(argument));
    (*state)->prepare();
    (*state)->loop();
    return nullptr;
}

WakeUpRun::WakeUpRun(int processor, double most_seconds) : state_(std::make_shared<State>()) {
    mlockall(MCL_CURRENT);  // where it is refused, page faults are part of what is measured
    state_->processor = processor;
    state_->late_ns.assign(static_cast<size_t>(most_seconds * 1000) + 1000, 0);
    state_->begin_ns = now_ns();
    auto* argument = new std::shared_ptr<State>(state_);
    state_->error = pthread_create(&state_->thread, nullptr, State::run, argument);
    if (state_->error != 0) {
        delete argument;
    }
}

WakeUpRun::~WakeUpRun() {
    finish();
}

Fact<WakeUps> WakeUpRun::finish() {
    if (state_->error != 0) {
        return Fact<WakeUps>::unknown(std::string("no thread: ") + std::strerror(state_->error));
    }
    const int64_t expected = (now_ns() - state_->begin_ns) / kPeriod;
    if (!state_->stop.exchange(true)) {
        timespec limit{};
        clock_gettime(CLOCK_REALTIME, &limit);
        ++limit.tv_sec;
        if (pthread_timedjoin_np(state_->thread, nullptr, &limit) != 0) {
            pthread_detach(state_->thread);
        }
    }
    std::vector<int64_t> late(state_->late_ns.begin(),
                              state_->late_ns.begin() + static_cast<ptrdiff_t>(state_->count));
    WakeUps figures = figures_of(late);
    figures.priority = state_->priority;
    figures.missed = state_->missed;
    if (late.size() < state_->late_ns.size()) {
        // It was at work until now, or has not run for a long time: the rest is missed as well.
        figures.missed = std::max<int64_t>(figures.missed, expected - figures.count - 2);
    }
    return figures;
}

}  // namespace doctor
