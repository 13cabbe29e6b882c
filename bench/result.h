// What a bench hands over: figures of the library beside figures of its limit, taken in turns.
#ifndef BENCH_RESULT_H
#define BENCH_RESULT_H

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

// What one round of a side measured.
struct Round {
    std::vector<double> values;
    uint64_t missed = 0;  // of those that should have been there
};

// How the two sides of a pair are held against each other.
enum class Scale {
    ratio,       // library / limit
    difference,  // library - limit
};

// A number drawn from a round, and its bound.
struct Figure {
    const char* name;  // "p99"
    double (*of)(const Round&);
    double bound;
    Scale scale = Scale::ratio;
    const char* unit = nullptr;  // where it is not that of the pair
};

// The value below which `share` of the values lie.
double quantile(std::vector<double> values, double share);

double p50(const Round& round);
double p99(const Round& round);
double largest(const Round& round);
double missed_percent(const Round& round);

// Rounds of both sides: the first of one was taken beside the first of the other, and so on.
struct Rounds {
    std::vector<Round> library;
    std::vector<Round> limit;
};

// Adds a line to the result file: the median of the pairs, and half the distance between their
// quartiles as the spread.
void add_result(const std::string& what, const char* unit, const Figure& figure,
                const Rounds& rounds);

// Where result lines and pictures go; from the environment, "." if it says nothing.
std::string output_path(const std::string& file);

}  // namespace bench

#endif
