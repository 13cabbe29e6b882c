// Pictures of latency distributions.
#ifndef TOOLS_PLOT_PERCENTILE_PLOT_H
#define TOOLS_PLOT_PERCENTILE_PLOT_H

#include <string>
#include <vector>

namespace plot {

struct Curve {
    std::string name;
    std::vector<double> values;
};

// Writes an SVG file with the percentiles of each curve: 0, 90, 99, 99.9, ... at equal distances to
// the right, and the values, on a log scale too, upwards. Curves without values are left out.
// Returns whether the file could be written.
bool plot_percentiles(const std::string& file, const std::string& title, const std::string& unit,
                      std::vector<Curve> curves);

}  // namespace plot

#endif
