// The one idea of the benches: a pair of sides, the library's and its limit's, which take rounds in
// turns. Each side lives in a process of its own, so that neither finds the other's threads, heap
// or connections in its way.
#ifndef BENCH_SIDE_H
#define BENCH_SIDE_H

#include <functional>
#include <string>
#include <vector>

#include "bench/result.h"

namespace bench {

// Takes one round.
using Measure = std::function<Round()>;

// Sets a side up, in its process.
using Prepare = std::function<Measure()>;

struct Pair {
    std::string what;
    const char* unit;
    Prepare library;
    Prepare limit;
    std::vector<Figure> figures;
    int rounds = 15;
    std::string picture = {};  // file name of the distributions' plot; empty: none
};

// Takes the rounds of a pair and adds its results.
void run(const Pair& pair);

// Runs the pairs the names of which contain `only` (all, when it is empty).
void run_all(const std::vector<Pair>& pairs, const std::string& only);

}  // namespace bench

#endif
