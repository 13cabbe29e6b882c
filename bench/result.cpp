#include "bench/result.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>

namespace bench {

namespace {

double compare(Scale scale, double library, double limit) {
    return scale == Scale::ratio ? library / limit : library - limit;
}

}  // namespace

double quantile(std::vector<double> values, double share) {
    if (values.empty()) {
        return std::nan("");
    }
    std::sort(values.begin(), values.end());
    const double last = static_cast<double>(values.size() - 1);
    return values[static_cast<size_t>(std::lround(share * last))];
}

double p50(const Round& round) {
    return quantile(round.values, 0.5);
}

double p99(const Round& round) {
    return quantile(round.values, 0.99);
}

double largest(const Round& round) {
    return quantile(round.values, 1);
}

double missed_percent(const Round& round) {
    const auto missed = static_cast<double>(round.missed);
    return 100 * missed / (missed + static_cast<double>(round.values.size()));
}

void add_result(const std::string& what, const char* unit, const Figure& figure,
                const Rounds& rounds) {
    std::vector<double> library;
    std::vector<double> limit;
    std::vector<double> compared;
    for (size_t i = 0; i < rounds.library.size(); ++i) {
        library.push_back(figure.of(rounds.library[i]));
        limit.push_back(figure.of(rounds.limit[i]));
        compared.push_back(compare(figure.scale, library.back(), limit.back()));
    }
    const double spread = (quantile(compared, 0.75) - quantile(compared, 0.25)) / 2;
    char line[512];
    std::snprintf(line, sizeof line, "%s\t%s\t%.4g\t%.4g\t%s\t%.3f\t%.3f\t%.2f\n", what.c_str(),
                  figure.name, quantile(library, 0.5), quantile(limit, 0.5),
                  figure.unit != nullptr ? figure.unit : unit, quantile(compared, 0.5), spread,
                  figure.bound);
    std::fputs(line, stderr);
    std::ofstream(output_path("results.tsv"), std::ios::app) << line;
}

std::string output_path(const std::string& file) {
    const char* directory = std::getenv("VEXO_BENCH_OUTPUT");
    return std::string(directory != nullptr ? directory : ".") + "/" + file;
}

}  // namespace bench
