// The pairs of the exchange with a controller, by subject.
#ifndef BENCH_EXCHANGE_PAIRS_H
#define BENCH_EXCHANGE_PAIRS_H

#include "bench/machine.h"
#include "bench/side.h"

namespace bench {

std::vector<Pair> servo_pairs();
std::vector<Pair> input_pairs();
std::vector<Pair> arrival_pairs();
std::vector<Pair> catalogue_pairs();
std::vector<Pair> load_pairs();
std::vector<Pair> session_pairs();
std::vector<Pair> handle_pairs();

// Times each of `count` calls, in microseconds.
template <typename Call>
Round time_calls(int count, int64_t period_ns, Call call) {
    Round round;
    round.values.reserve(static_cast<size_t>(count));
    Pace pace(period_ns);
    for (int i = 0; i < count; ++i) {
        pace.wait();
        const int64_t before = now_ns();
        call();
        round.values.push_back(static_cast<double>(now_ns() - before) / 1000);
    }
    return round;
}

}  // namespace bench

#endif
