// The small things, measured with Google Benchmark. Each bench comes as two functions, "library"
// and "limit", which are run in turns.
#ifndef BENCH_CALLS_CALLS_H
#define BENCH_CALLS_CALLS_H

#include <benchmark/benchmark.h>

#include <string>
#include <vector>

namespace bench {

using Function = void (*)(benchmark::State&);

struct CallPair {
    std::string what;
    Function library;
    Function limit;
    double bound;
    int64_t argument = 0;  // state.range(0)
    int threads = 1;
};

std::vector<CallPair> checksum_calls();
std::vector<CallPair> log_calls();
std::vector<CallPair> name_calls();
std::vector<CallPair> output_calls();
std::vector<CallPair> queue_calls();
std::vector<CallPair> semaphore_calls();

}  // namespace bench

#endif
