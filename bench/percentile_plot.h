// Pictures of latency distributions.
#ifndef BENCH_PERCENTILE_PLOT_H
#define BENCH_PERCENTILE_PLOT_H

#include <string>
#include <vector>

namespace bench {

struct Curve {
    std::string name;
    std::vector<double> values;
};

// Writes an SVG file with the percentiles of each curve: 0, 90, 99, 99.9, ... at equal distances to
// the right, and the values, on a log scale too, upwards.
void plot_percentiles(const std::string& file, const std::string& title, const std::string& unit,
                      std::vector<Curve> curves);

}  // namespace bench

#endif
