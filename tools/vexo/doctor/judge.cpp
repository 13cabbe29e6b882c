#include <algorithm>
#include <set>

#include "tools/vexo/doctor/check.h"
#include "tools/vexo/doctor/predicates.h"
#include "tools/vexo/doctor/tree.h"

namespace doctor {
namespace {

// Facts may come from a file of somebody else's and end up in a shell's script or on a terminal.
std::string plain(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }, '?');
    return text;
}

std::string word(std::string text) {
    std::replace_if(
        text.begin(), text.end(),
        [](unsigned char c) {
            return std::isalnum(c) == 0 &&
                   std::string("_.:,@/-").find(static_cast<char>(c)) == std::string::npos;
        },
        '_');
    return text;
}

std::string other_processors(const Facts& facts) {
    Processors others = facts.cpu.online.known() ? *facts.cpu.online : Processors();
    std::erase(others, facts.cpu.loop);
    return others.empty() ? std::to_string(facts.cpu.loop) : format_processors(others);
}

std::string busy_processes(const Facts& facts) {
    std::set<int64_t> processes;
    for (const BusyThread& thread : busy(facts)) {
        processes.insert(thread.process);
    }
    return joined(
        processes, [](int64_t process) { return std::to_string(process); }, " ");
}

std::string rival_processes(const Facts& facts) {
    std::set<int64_t> processes;
    for (const Thread& thread : facts.load.realtime_threads.known() ? *facts.load.realtime_threads
                                                                    : std::vector<Thread>()) {
        if (thread.priority >= kLoopPriority && contains(thread.processors, facts.cpu.loop)) {
            processes.insert(thread.process);
        }
    }
    return joined(
        processes, [](int64_t process) { return std::to_string(process); }, " ");
}

std::string interrupts_on_loop(const Facts& facts) {
    std::string text;
    if (facts.interface.interrupts.known()) {
        for (const auto& [number, where] : *facts.interface.interrupts) {
            if (contains(where, facts.cpu.loop)) {
                text += (text.empty() ? "" : " ") + word(number);
            }
        }
    }
    return text;
}

std::string fill_in(std::string text, const Facts& facts) {
    const std::pair<const char*, std::string> places[] = {
        {"{port}", word(facts.purpose.interface)},
        {"{controller}", word(facts.purpose.controller)},
        {"{cpu}", std::to_string(facts.cpu.loop)},
        {"{others}", other_processors(facts)},
        {"{group}", facts.process.group.known() ? word(*facts.process.group) : ""},
        {"{busy}", busy_processes(facts)},
        {"{rivals}", rival_processes(facts)},
        {"{interrupts}", interrupts_on_loop(facts)},
    };
    for (const auto& [place, value] : places) {
        for (size_t at = 0; (at = text.find(place, at)) != std::string::npos; at += value.size()) {
            text.replace(at, std::string(place).size(), value);
        }
    }
    return text;
}

Result apply(const Check& check, const Facts& facts) {
    const char* const excuse = check.excused(facts);
    const Finding finding =
        excuse != nullptr ? Finding{State::not_applicable, excuse} : check.judge(facts);
    Result result{check.id, check.title, finding.state, plain(finding.fact), "", "", "", {}};
    result.why = plain(finding.why.empty() ? check.why : finding.why);
    if (finding.state == State::bad) {
        result.remedy =
            plain(fill_in(finding.remedy.empty() ? check.remedy : finding.remedy, facts));
        result.commands = fill_in(finding.remedy.empty() ? check.commands : "", facts);
        result.cost = facts.run.seconds > 0 ? check.cost(facts) : Cost();
    }
    return result;
}

}  // namespace

const char* name_of(State state) {
    switch (state) {
        case State::good:
            return "good";
        case State::bad:
            return "bad";
        case State::unknown:
            return "unknown";
        case State::not_applicable:
            return "not applicable";
    }
    return "";
}

std::vector<Result> judge(const Facts& facts) {
    std::vector<Result> results;
    for (const std::span<const Check> checks :
         {system_checks(), processor_checks(), port_checks(), way_checks()}) {
        for (const Check& check : checks) {
            results.push_back(apply(check, facts));
        }
    }
    std::sort(results.begin(), results.end(),
              [](const Result& a, const Result& b) { return a.id < b.id; });
    return results;
}

}  // namespace doctor
