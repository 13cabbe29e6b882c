// What several checks have in common.
#ifndef TOOLS_VEXO_DOCTOR_PREDICATES_H
#define TOOLS_VEXO_DOCTOR_PREDICATES_H

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

#include "tools/vexo/doctor/check.h"

namespace doctor {

// Wake-ups may be that late, 99.9 % of them.
constexpr double kWakeUpLimit = 100;  // µs
// So many wake-ups may be missed, and packages be late.
constexpr double kLateShare = 0.001;

inline double share(int64_t part, int64_t whole) {
    return static_cast<double>(part) / static_cast<double>(whole);
}

inline Finding good(std::string fact) {
    return {State::good, std::move(fact)};
}
inline Finding bad(std::string fact) {
    return {State::bad, std::move(fact)};
}
inline Finding unknown(std::string reason) {
    return {State::unknown, std::move(reason)};
}
inline Finding good_if(bool condition, std::string fact) {
    return condition ? good(std::move(fact)) : bad(std::move(fact));
}

// A fact that the host does not have makes its check not applicable, one that is not known unknown.
template <class T>
Finding without(const Fact<T>& fact) {
    return {fact.absent() ? State::not_applicable : State::unknown, fact.reason()};
}

template <class T, class Judge>
Finding judge_fact(const Fact<T>& fact, Judge judge) {
    return fact.known() ? judge(*fact) : without(fact);
}

inline std::string number(double value, const char* unit = "") {
    char text[64];
    std::snprintf(text, sizeof text, std::fabs(value) < 1000 ? "%.3g%s" : "%.0f%s", value, unit);
    return text;
}

template <class Container, class Value>
bool contains(const Container& container, const Value& value) {
    return std::find(container.begin(), container.end(), value) != container.end();
}

template <class Container, class Text>
std::string joined(const Container& items, Text text, const char* between = ", ") {
    std::string result;
    for (const auto& item : items) {
        result += (result.empty() ? "" : between) + text(item);
    }
    return result;
}

inline bool may(const Facts& facts, int capability) {
    return facts.process.capabilities.known() &&
           (*facts.process.capabilities >> capability & 1) != 0;
}

inline std::vector<BusyThread> busy(const Facts& facts) {
    return facts.run.busy_threads.known() ? *facts.run.busy_threads : std::vector<BusyThread>();
}

// How far a counter went up in the run.
inline Fact<int64_t> grown(const Facts& facts, const std::string& counter) {
    if (facts.run.seconds <= 0) {
        return Fact<int64_t>::unknown("no run was made");
    }
    const auto found = facts.run.growth.find(counter);
    return found == facts.run.growth.end() ? Fact<int64_t>::unknown("the host does not count it")
                                           : Fact<int64_t>(found->second);
}

inline int64_t grown_or_0(const Facts& facts, const std::string& counter) {
    const Fact<int64_t> growth = grown(facts, counter);
    return growth.known() ? *growth : 0;
}

// What is found on the loop's processor, if it is known which one that is.
inline Finding on_the_loop(const Facts& facts, Finding (*judge)(const Facts& facts)) {
    return facts.cpu.loop < 0 ? unknown("the loop's processor was not recorded") : judge(facts);
}

// ---- When a check applies -----------------------------------------------------------------------

inline const char* always(const Facts&) {
    return nullptr;
}

inline const char* raw_path(const Facts& facts) {
    return facts.purpose.path == "raw" ? nullptr : "only on the raw path";
}

inline const char* a_port(const Facts& facts) {
    if (facts.purpose.interface.empty()) {
        return "no port is known: name one (--interface), or a controller (-H)";
    }
    return facts.interface.loopback.known() && *facts.interface.loopback
               ? "the controller is on this host"
               : nullptr;
}

inline const char* a_controller(const Facts& facts) {
    return facts.purpose.controller.empty() ? "no controller was named (-H), and none answers here"
                                            : nullptr;
}

// ---- Costs --------------------------------------------------------------------------------------

inline Cost cost_of(const Facts& facts, double us, std::string text) {
    return us > 0 ? Cost{Cost::Kind::some, us / facts.run.seconds, std::move(text)}
                  : Cost{Cost::Kind::none};
}

inline Cost not_measured(const Facts&) {
    return {};
}

// Of what makes wake-ups late, and is the likelier culprit the larger its weight (0 to 1). Nothing
// when they were in time.
inline Cost late_wake_ups(const Facts& facts, double weight) {
    if (!facts.run.wake_ups.known()) {
        return {};
    }
    const WakeUps& wake_ups = *facts.run.wake_ups;
    return cost_of(facts, wake_ups.p99_9_us < kWakeUpLimit ? 0 : wake_ups.late_us * weight,
                   "wake-ups came up to " + number(wake_ups.max_us, " µs") + " late");
}

// Of what may have a part in late wake-ups that the run cannot tell from others'.
inline Cost part_in_late_wake_ups(const Facts& facts) {
    const Cost cost = late_wake_ups(facts, 1);
    return cost.kind == Cost::Kind::none ? cost : Cost();
}

}  // namespace doctor

#endif
