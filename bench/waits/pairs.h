// The pairs that take their time: the log's writer and the simulated timer.
#ifndef BENCH_WAITS_PAIRS_H
#define BENCH_WAITS_PAIRS_H

#include "bench/side.h"

namespace bench {

std::vector<Pair> log_line_pairs();
std::vector<Pair> tick_pairs();

}  // namespace bench

#endif
