#include "sim/fault.h"

#include <charconv>
#include <functional>
#include <map>
#include <sstream>
#include <stdexcept>

#include "sim/fault_book.h"

namespace sim {

namespace {

[[noreturn]] void reject(const std::string& item) {
    throw std::invalid_argument("fault: cannot make sense of \"" + item + "\"");
}

// A number no greater than T holds.
template <typename T>
T number(const std::string& text, int base = 10) {
    T value{};
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, value, base);
    if (error != std::errc{} || stop != end) {
        reject(text);
    }
    return value;
}

char letter(const std::string& text) {
    if (text.size() != 1) {
        reject(text);
    }
    return text.front();
}

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::istringstream in(text);
    for (std::string part; std::getline(in, part, separator);) {
        parts.push_back(part);
    }
    return parts;
}

std::chrono::milliseconds milliseconds(const std::string& text) {
    return std::chrono::milliseconds(number<uint32_t>(text));
}

size_t times(const std::string& text) {
    return text == "always" ? Fault::always : number<size_t>(text);
}

std::vector<size_t> positions(const std::string& text) {
    std::vector<size_t> result;
    for (const std::string& part : split(text, '+')) {
        result.push_back(number<size_t>(part));
    }
    return result;
}

std::vector<uint8_t> hex_bytes(const std::string& text) {
    std::vector<uint8_t> result;
    for (size_t at = 0; at < text.size(); at += 2) {
        result.push_back(number<uint8_t>(text.substr(at, 2), 16));
    }
    return result;
}

MacAddress mac(const std::string& text) {
    const std::vector<std::string> parts = split(text, ':');
    MacAddress result{};
    if (parts.size() != result.size()) {
        reject(text);
    }
    for (size_t i = 0; i < parts.size(); ++i) {
        result[i] = number<uint8_t>(parts[i], 16);
    }
    return result;
}

using Setter = std::function<void(Fault&, const std::string&)>;

// What each item of a fault's text sets; an item without a value gets an empty one.
const std::map<std::string, Setter>& setters() {
    static const std::map<std::string, Setter> all{
        {"package", [](Fault& f, const std::string&) { f.target = Target::package; }},
        {"type", [](Fault& f, const std::string& v) { f.letter = letter(v); }},
        {"method", [](Fault& f, const std::string& v) { f.method = v; }},
        {"skip", [](Fault& f, const std::string& v) { f.skip = number<size_t>(v); }},
        {"times", [](Fault& f, const std::string& v) { f.times = times(v); }},
        {"status", [](Fault& f, const std::string& v) { f.status = number<uint8_t>(v); }},
        {"empty", [](Fault& f, const std::string&) { f.empty_page = true; }},
        {"bytes", [](Fault& f, const std::string& v) { f.bytes = hex_bytes(v); }},
        {"size", [](Fault& f, const std::string& v) { f.size = number<uint16_t>(v); }},
        {"length", [](Fault& f, const std::string& v) { f.length_word = number<uint16_t>(v); }},
        {"letter", [](Fault& f, const std::string& v) { f.other_letter = letter(v); }},
        {"lost", [](Fault& f, const std::string&) { f.lost = true; }},
        {"delay", [](Fault& f, const std::string& v) { f.delay = milliseconds(v); }},
        {"cuts", [](Fault& f, const std::string& v) { f.cuts = positions(v); }},
        {"pause", [](Fault& f, const std::string& v) { f.pause = milliseconds(v); }},
        {"close", [](Fault& f, const std::string&) { f.link = Break::close; }},
        {"reset", [](Fault& f, const std::string&) { f.link = Break::reset; }},
        {"after", [](Fault& f, const std::string& v) { f.link_after = number<size_t>(v); }},
        {"doubled", [](Fault& f, const std::string&) { f.doubled = true; }},
        {"altered", [](Fault& f, const std::string&) { f.altered = true; }},
        {"tagged", [](Fault& f, const std::string&) { f.tagged = true; }},
        {"source", [](Fault& f, const std::string& v) { f.source = mac(v); }},
        {"payload", [](Fault& f, const std::string& v) { f.payload_length = number<uint16_t>(v); }},
    };
    return all;
}

bool matches(const Fault& fault, Target target, char of_letter, std::string_view method) {
    return fault.target == target && (fault.letter == 0 || fault.letter == of_letter) &&
           (fault.method.empty() || fault.method == method);
}

}  // namespace

Fault parse_fault(const std::string& text) {
    Fault fault;
    for (const std::string& item : split(text, ',')) {
        const size_t equals = item.find('=');
        const auto setter = setters().find(item.substr(0, equals));
        if (setter == setters().end()) {
            reject(item);
        }
        setter->second(fault, equals == std::string::npos ? "" : item.substr(equals + 1));
    }
    return fault;
}

void FaultBook::add(Fault fault) {
    if (fault.times > 0) {
        faults_.push_back(std::move(fault));
    }
}

std::optional<Fault> FaultBook::meet(Target target, char letter, std::string_view method) {
    for (auto fault = faults_.begin(); fault != faults_.end(); ++fault) {
        if (!matches(*fault, target, letter, method)) {
            continue;
        }
        if (fault->skip > 0) {
            --fault->skip;
            continue;
        }
        const Fault met = *fault;
        if (fault->times != Fault::always && --fault->times == 0) {
            faults_.erase(fault);
        }
        return met;
    }
    return std::nullopt;
}

}  // namespace sim
