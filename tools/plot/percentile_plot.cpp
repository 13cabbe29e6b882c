#include "tools/plot/percentile_plot.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <sstream>

namespace plot {

namespace {

constexpr double kWidth = 640;
constexpr double kHeight = 360;
constexpr double kLeft = 70;
constexpr double kBottom = 50;
constexpr double kTop = 40;
constexpr double kRight = 20;
constexpr const char* kColours[] = {"#d62728", "#1f77b4", "#2ca02c", "#9467bd"};

// Where values and percentiles lie in the picture.
struct Axes {
    double lowest;  // of the values, a power of ten
    double highest;
    double nines;  // how many the axis of percentiles reaches to: 3 is 99.9 %

    double x(double at_nines) const { return kLeft + at_nines / nines * (kWidth - kLeft - kRight); }
    double y(double value) const {
        const double share = std::log10(value / lowest) / std::log10(highest / lowest);
        return kHeight - kBottom - share * (kHeight - kBottom - kTop);
    }
};

Axes axes_for(const std::vector<Curve>& curves) {
    double low = curves.empty() ? 1 : INFINITY;
    double high = 1e-3;
    size_t most = 1;
    for (const Curve& curve : curves) {
        low = std::min(low, std::max(curve.values.front(), 1e-3));
        high = std::max(high, curve.values.back());
        most = std::max(most, curve.values.size());
    }
    const double lowest = std::pow(10, std::floor(std::log10(low)));
    return {lowest, std::max(std::pow(10, std::ceil(std::log10(high))), 10 * lowest),
            std::max(1.0, std::log10(static_cast<double>(most)))};
}

void text(std::ostream& out, double x, double y, const char* anchor, const std::string& words) {
    out << "<text x='" << x << "' y='" << y << "' text-anchor='" << anchor << "'>" << words
        << "</text>\n";
}

void line(std::ostream& out, double x1, double y1, double x2, double y2) {
    out << "<path stroke='#ddd' d='M" << x1 << ' ' << y1 << 'L' << x2 << ' ' << y2 << "'/>\n";
}

std::string percent(int nines) {
    std::ostringstream words;
    words.precision(10);
    words << 100 - 100 * std::pow(10, -nines) << " %";
    return words.str();
}

void draw_grid(std::ostream& out, const Axes& axes, const std::string& unit) {
    for (int nines = 0; nines <= axes.nines; ++nines) {
        const double x = axes.x(nines);
        line(out, x, kTop, x, kHeight - kBottom);
        text(out, x, kHeight - kBottom + 18, "middle", percent(nines));
    }
    for (double value = axes.lowest; value <= axes.highest * 1.001; value *= 10) {
        line(out, kLeft, axes.y(value), kWidth - kRight, axes.y(value));
        std::ostringstream words;
        words << value << ' ' << unit;
        text(out, kLeft - 6, axes.y(value) + 4, "end", words.str());
    }
    text(out, (kLeft + kWidth - kRight) / 2, kHeight - 10, "middle", "percentile");
}

// One point for every value would make a large file: a hundred points for each nine do.
void draw_curve(std::ostream& out, const Axes& axes, const Curve& curve, const char* colour) {
    constexpr int kPointsPerNine = 100;
    const auto count = static_cast<double>(curve.values.size());
    out << "<path fill='none' stroke-width='1.5' stroke='" << colour << "' d='";
    const int points = static_cast<int>(std::log10(count) * kPointsPerNine);
    for (int i = 0; i <= points; ++i) {
        const double nines = static_cast<double>(i) / kPointsPerNine;
        const double above = count * std::pow(10, -nines);
        const auto index = static_cast<size_t>(std::clamp(count - above, 0.0, count - 1));
        out << (i == 0 ? 'M' : 'L') << axes.x(nines) << ' '
            << axes.y(std::max(curve.values[index], axes.lowest));
    }
    out << "'/>\n";
}

}  // namespace

bool plot_percentiles(const std::string& file, const std::string& title, const std::string& unit,
                      std::vector<Curve> curves) {
    curves.erase(std::remove_if(curves.begin(), curves.end(),
                                [](const Curve& curve) { return curve.values.empty(); }),
                 curves.end());
    for (Curve& curve : curves) {
        std::sort(curve.values.begin(), curve.values.end());
    }
    const Axes axes = axes_for(curves);
    std::ofstream out(file);
    out << "<svg xmlns='http://www.w3.org/2000/svg' width='" << kWidth << "' height='" << kHeight
        << "' font-family='sans-serif' font-size='11'>\n<rect width='100%' height='100%' "
           "fill='white'/>\n";
    text(out, kWidth / 2, 20, "middle", title);
    draw_grid(out, axes, unit);
    for (size_t i = 0; i < curves.size(); ++i) {
        const char* colour = kColours[i % std::size(kColours)];
        draw_curve(out, axes, curves[i], colour);
        const double y = kTop + 15 * static_cast<double>(i + 1);
        out << "<g fill='" << colour << "'>";
        text(out, kLeft + 10, y, "start", curves[i].name);
        out << "</g>\n";
    }
    out << "</svg>\n";
    return static_cast<bool>(out.flush());
}

}  // namespace plot
