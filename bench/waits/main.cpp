// Usage: bench_waits [WORDS OF A PAIR'S NAME]
#include "bench/waits/pairs.h"

int main(int argc, char** argv) {
    const std::string only = argc > 1 ? argv[1] : "";
    bench::run_all(bench::log_line_pairs(), only);
    bench::run_all(bench::tick_pairs(), only);
}
