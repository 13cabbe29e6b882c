#include "sim/fault_values.h"

#include <cmath>
#include <sstream>

namespace sim {

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

double number_within(const std::string& text, double least, double most) {
    double value = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value);
    const bool fits = error == std::errc{} && stop == end && value >= least && value <= most;
    return fits ? value : (reject(), value);
}

void read(const std::string& text, char& value) {
    value = text.size() == 1 ? text.front() : (reject(), '\0');
}

void read(const std::string& text, std::string& value) {
    value = text;
}

void read(const std::string& text, Span& value) {
    constexpr double kLongest = 1e9;  // ms
    value = Span(std::llround(number_within(text, 0, kLongest) * 1000));
}

void read(const std::string& text, std::vector<size_t>& value) {
    for (const std::string& part : split(text, '+')) {
        value.push_back(number<size_t>(part));
    }
}

void read(const std::string& text, std::vector<uint8_t>& value) {
    for (size_t at = 0; at < text.size(); at += 2) {
        value.push_back(number<uint8_t>(text.substr(at, 2), 16));
    }
}

void read(const std::string& text, MacAddress& value) {
    const std::vector<std::string> parts = split(text, ':');
    if (parts.size() != value.size()) {
        reject();
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        value[i] = number<uint8_t>(parts[i], 16);
    }
}

void read(const std::string& text, Port& value) {
    value = text == "raw"       ? Port::raw
            : text == "io"      ? Port::io
            : text == "control" ? Port::control
            : text == "stream"  ? Port::stream
                                : (reject(), Port::raw);
}

}  // namespace sim
