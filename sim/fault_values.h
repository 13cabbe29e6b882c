// How the members of a fault are written as text.
//
// Each read takes the whole text, or throws std::invalid_argument without a text of its own: who
// calls it knows what was to be read.
#ifndef SIM_FAULT_VALUES_H
#define SIM_FAULT_VALUES_H

#include <charconv>
#include <concepts>
#include <stdexcept>

#include "sim/fault.h"

namespace sim {

[[noreturn]] inline void reject() {
    throw std::invalid_argument("");
}

std::vector<std::string> split(const std::string& text, char separator);

template <std::integral T>
T number(const std::string& text, int base = 10) {
    T value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    return error == std::errc{} && stop == end ? value : (reject(), value);
}
double number_within(const std::string& text, double least, double most);

template <std::integral T>
void read(const std::string& text, T& value) {
    value = number<T>(text);
}
void read(const std::string& text, char& value);
void read(const std::string& text, std::string& value);
void read(const std::string& text, Span& value);                  // ms, perhaps with a fraction
void read(const std::string& text, std::vector<size_t>& value);   // 1+2+3
void read(const std::string& text, std::vector<uint8_t>& value);  // 0badf00d
void read(const std::string& text, MacAddress& value);            // 02:00:00:00:00:09
void read(const std::string& text, Port& value);

template <typename T>
void read(const std::string& text, std::optional<T>& value) {
    read(text, value.emplace());
}

}  // namespace sim

#endif
