#include "session/nearest_name.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <numeric>
#include <string>

#include "session/error.h"

namespace vexo::session {

namespace {

constexpr size_t kLongest = 255;
constexpr uint32_t kNotContained = 1000;

using Text = std::array<char, kLongest>;
using Costs = std::array<uint32_t, kLongest + 1>;

std::string_view lower_case(std::string_view text, Text& into) {
    const size_t size = std::min(text.size(), into.size());
    std::transform(text.begin(), text.begin() + static_cast<ptrdiff_t>(size), into.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return {into.data(), size};
}

// The edit distance in which two neighbours that are swapped count one.
uint32_t letters_to_change(std::string_view a, std::string_view b) {
    Costs before_last{};
    Costs last{};
    Costs now{};
    for (uint32_t j = 0; j <= b.size(); ++j) {
        now[j] = j;
    }
    for (uint32_t i = 1; i <= a.size(); ++i) {
        before_last = last;
        last = now;
        now[0] = i;
        for (uint32_t j = 1; j <= b.size(); ++j) {
            const uint32_t change = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
            now[j] = std::min({last[j] + 1, now[j - 1] + 1, change});
            const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
            if (swapped) {
                now[j] = std::min(now[j], before_last[j - 2] + 1);
            }
        }
    }
    return now[b.size()];
}

}  // namespace

uint32_t name_distance(std::string_view typed, std::string_view name) {
    Text typed_text;
    Text name_text;
    const std::string_view a = lower_case(typed, typed_text);
    const std::string_view b = lower_case(name, name_text);
    const bool contained = !a.empty() && b.find(a) != std::string_view::npos;
    return contained ? static_cast<uint32_t>(b.size() - a.size())
                     : kNotContained + letters_to_change(a, b);
}

std::vector<size_t> nearest_names(std::string_view typed, std::span<const std::string_view> names,
                                  size_t count) {
    std::vector<uint32_t> distances;
    for (const std::string_view name : names) {
        distances.push_back(name_distance(typed, name));
    }
    std::vector<size_t> places(names.size());
    std::iota(places.begin(), places.end(), size_t{0});
    std::stable_sort(places.begin(), places.end(),
                     [&](size_t a, size_t b) { return distances[a] < distances[b]; });
    places.resize(std::min(count, places.size()));
    return places;
}

VexoSessionError unknown_name(std::string_view typed, const char* where,
                              std::span<const std::string_view> names) {
    constexpr size_t kShown = 3;
    VexoSessionError error =
        failure(VEXO_SESSION_UNKNOWN_NAME, "\"%.*s\" is not %s",
                static_cast<int>(std::min<size_t>(typed.size(), 200)), typed.data(), where);
    std::string text;
    for (const size_t place : nearest_names(typed, names, kShown)) {
        text += (text.empty() ? "" : ", ") + std::string(names[place]);
    }
    if (!text.empty()) {
        std::snprintf(error.remedy, sizeof error.remedy, "The nearest: %s", text.c_str());
    }
    return error;
}

}  // namespace vexo::session
