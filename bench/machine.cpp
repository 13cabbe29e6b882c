#include "bench/machine.h"

#include <sched.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace bench {

namespace {

int64_t read_clock(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

// Of the whole process: a thread that is pinned already sees its own processor only.
const cpu_set_t& usable_processors() {
    static const cpu_set_t usable = [] {
        cpu_set_t set;
        sched_getaffinity(0, sizeof set, &set);
        return set;
    }();
    return usable;
}

}  // namespace

int processor_of(Place place) {
    int first = -1;
    int last = -1;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &usable_processors())) {
            first = first < 0 ? i : first;
            last = i;
        }
    }
    return place == Place::controller ? first : last;
}

int64_t now_ns() {
    return read_clock(CLOCK_MONOTONIC);
}

int64_t cpu_time_ns(pthread_t thread) {
    clockid_t clock{};
    require(pthread_getcpuclockid(thread, &clock) == 0, "no CPU clock");
    return read_clock(clock);
}

void pin(Place place, pthread_t thread) {
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(processor_of(place), &one);
    pthread_setaffinity_np(thread, sizeof one, &one);
}

void require(bool held, const std::string& what) {
    if (!held) {
        std::fprintf(stderr, "bench: %s (%s)\n", what.c_str(), std::strerror(errno));
        std::_Exit(1);
    }
}

void run_ip(const std::string& arguments) {
    require(std::system(("ip " + arguments).c_str()) == 0, "ip " + arguments);
}

}  // namespace bench
