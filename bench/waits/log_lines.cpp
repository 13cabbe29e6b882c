// How long a line takes to the disk when lines wait all the time, each flushed.
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <thread>

#include "bench/machine.h"
#include "bench/waits/pairs.h"
#include "log/log.h"

namespace bench {

namespace {

constexpr int64_t kRoundTime = 200'000'000;
constexpr int64_t kOfferedEvery = 400;  // ns; faster than any disk takes them
constexpr char kText[] = "vexo_output_setup_send Error: output_vars_num(233) < request_varnum(240)";
constexpr char kLine[] =
    "Function:vexo_output_setup_send Handle:0 Time:2024-01-31 08:15:02.000123 "
    "vexo_output_setup_send Error: output_vars_num(233) < request_varnum(240)\n";

// The log keeps only what the writer has room for: the lines in the file are those that count.
double lines_in(const char* file) {
    std::ifstream in(file);
    using Characters = std::istreambuf_iterator<char>;
    return static_cast<double>(std::count(Characters(in), Characters(), '\n'));
}

Round time_per_line(int64_t begin, double lines) {
    return {{static_cast<double>(now_ns() - begin) / lines / 1000}, 0};
}

Measure library() {
    dup2(STDOUT_FILENO, STDERR_FILENO);  // the log's farewell
    return [] {
        pin(Place::controller);  // the writer; the caller has a processor of its own
        const int64_t begin = now_ns();
        log_init();
        pin(Place::application);
        Pace pace(kOfferedEvery);
        while (now_ns() - begin < kRoundTime) {
            pace.wait();
            log_write(0, "vexo_output_setup_send", kText);
        }
        log_cleanup();
        const Round round = time_per_line(begin, 1);
        return Round{{round.values[0] / lines_in("vexo_sys_log_log")}, 0};
    };
}

Round write_bare() {
    const int64_t begin = now_ns();
    FILE* const file = std::fopen("bare_log", "we");
    double lines = 0;
    while (now_ns() - begin < kRoundTime) {
        std::fputs(kLine, file);
        std::fflush(file);
        ++lines;
    }
    std::fclose(file);
    return time_per_line(begin, lines);
}

// On a thread beside another, as every writer that callers don't wait for: system calls and streams
// cost a process with a single thread less.
Measure limit() {
    pin(Place::controller);
    return [] {
        Round round;
        std::thread([&] { round = write_bare(); }).join();
        return round;
    };
}

}  // namespace

std::vector<Pair> log_line_pairs() {
    return {{"lines to disk, each flushed", "µs", library, limit, {{"per line", p50, 1.15}}, 15}};
}

}  // namespace bench
