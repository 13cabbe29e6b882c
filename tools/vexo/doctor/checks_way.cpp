// Checks of the way to the controller, of clocks, and of its stream.
#include <algorithm>
#include <cmath>
#include <cstring>

#include "tools/vexo/doctor/predicates.h"

namespace doctor {
namespace {

constexpr double kStepUs = 1000;
constexpr double kSlewPpm = 500;
constexpr double kSilentUs = 50'000;

// ---- The way ------------------------------------------------------------------------------------

Finding route(const Facts& facts) {
    return judge_fact(facts.network.route, [&](const Route& way) -> Finding {
        const std::string& port = facts.purpose.interface;
        if (way.interface.empty()) {
            return {State::bad, "no route to " + facts.purpose.controller,
                    "nothing can be sent to the controller",
                    "give the port an address in the controller's network: ip address add "
                    "ADDRESS/24 dev PORT"};
        }
        if (way.interface != port) {
            const bool strict = facts.network.rp_filter.known() && *facts.network.rp_filter == 1;
            return bad("the controller is sent to over " + way.interface + ", not over " + port +
                       (strict ? ", and rp_filter drops what comes over " + port : ""));
        }
        if (facts.network.rivals.known() && !facts.network.rivals->empty()) {
            return bad(joined(*facts.network.rivals, [](const std::string& one) { return one; }) +
                       " has an address in the same network as " + port);
        }
        if (facts.purpose.path == "raw" && !way.gateway.empty()) {
            return {State::bad, "by the gateway " + way.gateway, "raw frames are not routed",
                    "connect host and controller to the same segment"};
        }
        return judge_fact(facts.network.rivals, [&](const std::vector<std::string>&) {
            return good("over " + way.interface);
        });
    });
}

// What it means that a port does not take connections, the worst first.
struct PortState {
    const char* state;
    const char* why;
    const char* remedy;
};
constexpr PortState kPortStates[] = {
    {"forbidden here", "this host's own firewall forbids it",
     "allow output to the controller: nft list ruleset"},
    {"unreachable", "there is no way to the controller, or nobody has its address",
     "look at address, cable and route: ip route get {controller}"},
    {"timed out", "a firewall on the way drops it without a word, or the controller is off",
     "let ports 2295, 2297 and 2299 pass on the way; see whether the controller runs"},
    {"refused", "the controller is there, but its service is off",
     "switch on the controller's service for applications"},
};

Finding ports(const Facts& facts) {
    if (facts.network.route.known() && facts.network.route->interface.empty()) {
        return unknown("they cannot be asked without a route");
    }
    const bool raw = facts.purpose.path == "raw";
    return judge_fact(
        facts.network.ports, [raw](const std::map<std::string, std::string>& states) -> Finding {
            const std::string fact =
                joined(states, [](const auto& one) { return one.first + " " + one.second; });
            for (const PortState& closed : kPortStates) {
                for (const auto& [port, state] : states) {
                    if (state == closed.state) {
                        return {State::bad, fact, closed.why, closed.remedy};
                    }
                }
            }
            for (const char* needed : {"2295", "2297", "2299"}) {
                if (states.count(needed) == 0 && !(raw && std::strcmp(needed, "2299") == 0)) {
                    return unknown(fact + "; " + needed + " was not asked");
                }
            }
            const bool all = std::all_of(states.begin(), states.end(), [](const auto& one) {
                return one.second == "open" || one.second == "in use";
            });
            return good_if(all, fact);
        });
}

Finding retransmits(const Facts& facts) {
    const bool connected = facts.run.stream.known() || held_elsewhere(facts);
    if (facts.run.seconds > 0 && !connected) {
        return unknown("there was no connection to the controller");
    }
    return judge_fact(grown(facts, "retransmits"), [](int64_t segments) {
        return good_if(segments == 0, std::to_string(segments) + " segments");
    });
}

Cost cost_of_retransmits(const Facts& facts) {
    const auto segments = static_cast<double>(grown_or_0(facts, "retransmits"));
    return cost_of(facts, segments * 10'000, number(segments, " segments came late for it"));
}

// ---- The run ------------------------------------------------------------------------------------

Finding clocks(const Facts& facts) {
    return judge_fact(facts.run.clock_step_us, [&](double step) {
        if (std::fabs(step) >= kStepUs) {
            return bad("the clock was set by " + number(step / 1000, " ms") + " in the run");
        }
        return judge_fact(facts.run.clock_slew_ppm, [](double slew) {
            return good_if(std::fabs(slew) <= kSlewPpm,
                           "no step, slewed by " + number(slew, " ppm"));
        });
    });
}

Cost cost_of_clocks(const Facts& facts) {
    const double step = facts.run.clock_step_us.known() ? std::fabs(*facts.run.clock_step_us) : 0;
    return cost_of(facts, step >= kStepUs ? step : 0, "times in records jump");
}

int64_t late_packages(const Stream& stream) {
    int64_t late = 0;
    for (const auto& [cause, count] : stream.late) {
        late += count;
    }
    return late;
}

// A stream that has ended brings no package that could be late.
bool silent(const Stream& stream) {
    return stream.silent_us > std::max(kSilentUs, 20 * stream.interval_p50_us);
}

Finding stream(const Facts& facts) {
    return judge_fact(facts.run.stream, [](const Stream& figures) {
        const int64_t late = late_packages(figures);
        std::string fact = std::to_string(figures.packages) + " packages, " +
                           std::to_string(figures.lost) + " lost, " + std::to_string(late) +
                           " late";
        for (const auto& [cause, count] : figures.late) {
            fact += count > 0 ? ", " + cause + " " + std::to_string(count) : "";
        }
        fact += figures.cuts > 0 ? ", " + std::to_string(figures.cuts) + " cuts" : "";
        fact += silent(figures) ? ", silent for " + number(figures.silent_us / 1000, " ms") : "";
        fact += "; interval p50 " + number(figures.interval_p50_us) + ", p99.9 " +
                number(figures.interval_p99_9_us) + ", max " +
                number(figures.interval_max_us, " µs");
        if (figures.packages == 0 || figures.lost > 0 || figures.cuts > 0 || silent(figures) ||
            share(late, figures.packages) > kLateShare) {
            return bad(fact);
        }
        return figures.late.empty() ? unknown(fact + ": no causes recorded") : good(fact);
    });
}

Cost cost_of_stream(const Facts& facts) {
    const Stream& figures = *facts.run.stream;
    return cost_of(facts,
                   static_cast<double>(figures.lost) * 1000 +
                       static_cast<double>(late_packages(figures)) * 500 +
                       static_cast<double>(figures.cuts) * 1e6 +
                       (silent(figures) ? figures.silent_us : 0),
                   std::to_string(figures.lost) + " packages lost, " +
                       std::to_string(late_packages(figures)) + " late");
}

// ---- The table ----------------------------------------------------------------------------------

constexpr Check kChecks[] = {
    {32, "route", a_controller, route, not_measured,
     "the wrong port sends or answers, now and then or always",
     "give each port a network of its own, or name the way: ip route add {controller} dev "
     "{port}",
     "ip route replace {controller} dev {port}"},
    {33, "ports of the controller", a_controller, ports, not_measured,
     "without them there is no session", "see whether {controller} is the controller's address",
     ""},
    {34, "retransmits", a_controller, retransmits, cost_of_retransmits,
     "a segment that has to be sent again is late by a round trip, or by 200 ms",
     "look at the cable, the switch, and who else uses the link", ""},
    {35, "clocks", always, clocks, cost_of_clocks,
     "a clock that is set tears the times of records apart",
     "let the time service slew: chrony without makestep, ntpd with -x", ""},
    {37, "stream", a_controller, stream, cost_of_stream,
     "a package that is lost or late is a cycle with old values",
     "by cause: peer: the controller; wire: cable, switch, moderation; wake-up: see above; "
     "reader: the application",
     ""},
};

}  // namespace

std::span<const Check> way_checks() {
    return kChecks;
}

}  // namespace doctor
