// Checks of the processors, and of who else wants them.
#include <iterator>

#include "tools/vexo/doctor/predicates.h"
#include "tools/vexo/doctor/tree.h"

namespace doctor {
namespace {

constexpr double kSiblingIdle = 5;  // % of a processor
constexpr double kPressure = 1;     // % of the time
constexpr int64_t kLeastWakeUps = 1000;

// ---- Processors ---------------------------------------------------------------------------------

// A guest sees neither frequencies nor sleep states: its hypervisor decides.
template <class T>
Finding only_the_hypervisor_knows(const Fact<T>& fact, const Facts& facts) {
    const bool guest = facts.cpu.hypervisor.known() && *facts.cpu.hypervisor;
    return guest ? unknown("only the hypervisor knows") : without(fact);
}

Finding governor(const Facts& facts) {
    const auto& governors = facts.cpu.governors;
    if (!governors.known()) {
        return only_the_hypervisor_knows(governors, facts);
    }
    if (governors->empty()) {
        return unknown("of no processor");
    }
    const bool all = std::all_of(governors->begin(), governors->end(),
                                 [](const auto& one) { return one.first == "performance"; });
    return good_if(all, joined(*governors, [](const auto& one) {
                       return one.first + " on " + format_processors(one.second);
                   }));
}

Cost cost_of_governor(const Facts& facts) {
    return late_wake_ups(facts, 0.4);
}

bool deep(const IdleState& state) {
    return state.name != "POLL" && state.name != "C1" && state.name != "C1_ACPI";
}

// Whether the loop's processor may sleep that deeply, and did if that is known.
bool used(const Facts& facts, const IdleState& state) {
    const Fact<int64_t> usage = grown(facts, "idle." + state.name);
    const Fact<int64_t>& held = facts.cpu.dma_latency_us;
    const bool held_off = held.known() && state.latency_us > *held;
    return !state.disabled && !held_off && (!usage.known() || *usage > 0);
}

Finding sleep_states(const Facts& facts) {
    const auto& states = facts.cpu.idle_states;
    if (!states.known()) {
        return only_the_hypervisor_knows(states, facts);
    }
    if (states->empty()) {
        return unknown("none recorded");
    }
    std::vector<IdleState> deep_ones;
    std::copy_if(states->begin(), states->end(), std::back_inserter(deep_ones),
                 [&](const IdleState& state) { return deep(state) && used(facts, state); });
    return deep_ones.empty() ? good("none below C1")
                             : bad(joined(deep_ones, [](const IdleState& state) {
                                   return state.name + " (" + std::to_string(state.latency_us) +
                                          " µs to leave it)";
                               }));
}

Cost cost_of_sleep_states(const Facts& facts) {
    double us = 0;
    for (const IdleState& state : *facts.cpu.idle_states) {
        if (deep(state) && used(facts, state)) {
            us += static_cast<double>(grown_or_0(facts, "idle." + state.name)) *
                  static_cast<double>(state.latency_us);
        }
    }
    return cost_of(
        facts, us,
        "leaving deep sleep took about " + number(us / facts.run.seconds, " µs of each second"));
}

double sibling_percent(const Facts& facts) {
    return static_cast<double>(grown_or_0(facts, "sibling_busy_ms")) / (10 * facts.run.seconds);
}

Finding sibling(const Facts& facts) {
    if (!facts.cpu.smt.known() || !*facts.cpu.smt) {
        return judge_fact(facts.cpu.smt, [](bool) { return good("off"); });
    }
    return judge_fact(facts.cpu.siblings, [&](const Processors& siblings) {
        if (!contains(siblings, facts.cpu.loop)) {
            return unknown("those of processor " + std::to_string(facts.cpu.loop));
        }
        if (siblings.size() < 2) {
            return good("processor " + std::to_string(facts.cpu.loop) + " has no sibling");
        }
        const std::string fact = "siblings " + format_processors(siblings);
        if (!grown(facts, "sibling_busy_ms").known()) {
            return unknown(fact + "; no run has shown whether they are idle");
        }
        return good_if(sibling_percent(facts) < kSiblingIdle,
                       fact + ", busy for " + number(sibling_percent(facts), " % of the run"));
    });
}

Finding hyper_threads(const Facts& facts) {
    return on_the_loop(facts, sibling);
}

Cost cost_of_sibling(const Facts& facts) {
    return late_wake_ups(facts, 0.3);
}

Finding isolated_loop(const Facts& facts) {
    return judge_fact(facts.cpu.isolated, [&](const Processors& isolated) -> Finding {
        const std::string processors = isolated.empty() ? "none" : format_processors(isolated);
        const std::string fact = "the loop's processor is " + std::to_string(facts.cpu.loop) +
                                 ", isolated: " + processors;
        if (contains(isolated, facts.cpu.loop) || isolated.empty()) {
            return good_if(!isolated.empty(), fact);
        }
        return {State::bad, fact, "", "start the application with taskset -c " + processors};
    });
}

Finding isolation(const Facts& facts) {
    return on_the_loop(facts, isolated_loop);
}

Finding tickless(const Facts& facts) {
    return judge_fact(facts.cpu.nohz_full, [](const Processors& processors) {
        return good_if(processors.empty(),
                       processors.empty() ? "none" : format_processors(processors));
    });
}

Finding hypervisor(const Facts& facts) {
    return judge_fact(facts.cpu.hypervisor, [&](bool guest) {
        const Fact<int64_t> steal = grown(facts, "steal_ms");
        if (steal.known() && *steal > 0) {
            return bad(std::to_string(*steal) + " ms were stolen in the run");
        }
        return good_if(!guest, guest ? "this is a virtual machine" : "none");
    });
}

Cost cost_of_hypervisor(const Facts& facts) {
    const auto steal = static_cast<double>(grown_or_0(facts, "steal_ms"));
    return cost_of(facts, steal * 1000, "the hypervisor took " + number(steal, " ms"));
}

// ---- Others -------------------------------------------------------------------------------------

Finding load(const Facts& facts) {
    return judge_fact(facts.load.pressure, [&](double pressure) {
        const std::vector<BusyThread> threads = busy(facts);
        const std::string who = joined(threads, [](const BusyThread& thread) {
            return thread.name + " (" + std::to_string(thread.process) + ", " +
                   number(thread.percent, " %") + ")";
        });
        return good_if(pressure < kPressure, "something waited for a processor " +
                                                 number(pressure, " % of the time") +
                                                 (who.empty() ? "" : "; busiest: " + who));
    });
}

Cost cost_of_load(const Facts& facts) {
    const std::vector<BusyThread> threads = busy(facts);
    const bool in_the_way = std::any_of(threads.begin(), threads.end(),
                                        [](const BusyThread& thread) { return thread.on_loop; });
    return in_the_way ? late_wake_ups(facts, 0.8) : Cost{Cost::Kind::none};
}

bool rival(const Facts& facts, const Thread& thread) {
    return thread.priority >= kLoopPriority && contains(thread.processors, facts.cpu.loop);
}

Finding rivals_there(const Facts& facts) {
    return judge_fact(facts.load.realtime_threads, [&](const std::vector<Thread>& threads) {
        std::vector<Thread> found;
        std::copy_if(threads.begin(), threads.end(), std::back_inserter(found),
                     [&facts](const Thread& thread) { return rival(facts, thread); });
        if (!found.empty()) {
            return bad(joined(found, [](const Thread& thread) {
                return thread.name + " (process " + std::to_string(thread.process) + ", priority " +
                       std::to_string(thread.priority) + ")";
            }));
        }
        const bool all = facts.load.all_visible.known() && *facts.load.all_visible;
        return all ? good("none") : unknown("not all threads of the host can be seen from here");
    });
}

Finding rivals(const Facts& facts) {
    return on_the_loop(facts, rivals_there);
}

Cost cost_of_rivals(const Facts& facts) {
    double us = 0;
    for (const BusyThread& thread : busy(facts)) {
        us += thread.priority >= kLoopPriority ? thread.percent * 10'000 * facts.run.seconds : 0;
    }
    return cost_of(facts, us, "they ran for " + number(us / 1e6, " s"));
}

// ---- The run ------------------------------------------------------------------------------------

Finding wake_ups(const Facts& facts) {
    return judge_fact(facts.run.wake_ups, [](const WakeUps& figures) {
        const std::string fact =
            "p50 " + number(figures.p50_us) + ", p99 " + number(figures.p99_us) + ", p99.9 " +
            number(figures.p99_9_us) + ", max " + number(figures.max_us, " µs late") + " in " +
            std::to_string(figures.count) + " wake-ups, " + std::to_string(figures.missed) +
            " missed, " +
            (figures.priority > 0 ? "SCHED_FIFO " + std::to_string(figures.priority)
                                  : "without real-time priority");
        if (figures.count == 0) {
            return bad("not woken once, " + std::to_string(figures.missed) + " missed");
        }
        if (figures.p99_9_us >= kWakeUpLimit || share(figures.missed, figures.count) > kLateShare) {
            return bad(fact);
        }
        return figures.count < kLeastWakeUps ? unknown(fact + ": too few to tell p99.9")
                                             : good(fact);
    });
}

Cost cost_of_wake_ups(const Facts& facts) {
    const WakeUps& figures = *facts.run.wake_ups;
    return cost_of(facts, figures.late_us + static_cast<double>(figures.missed) * 1000,
                   number(figures.late_us / facts.run.seconds, " µs too late in each second"));
}

// ---- The table ----------------------------------------------------------------------------------

constexpr Check kChecks[] = {
    {7, "frequency governor", always, governor, cost_of_governor,
     "a processor that runs slowly when it idles takes longer for each cycle",
     "cpupower frequency-set -g performance", "cpupower frequency-set -g performance"},
    {8, "sleep states", always, sleep_states, cost_of_sleep_states,
     "a processor in deep sleep wakes up late, by the time that stands beside the state",
     "hold /dev/cpu_dma_latency open with the value 0 in the application",
     "cpupower idle-set --disable-by-latency 2"},
    {9, "hyper-threading", always, hyper_threads, cost_of_sibling,
     "a busy sibling takes a part of the loop's processor",
     "keep others off the sibling, or switch it off: echo off >"
     "/sys/devices/system/cpu/smt/control",
     "echo off >/sys/devices/system/cpu/smt/control"},
    {10, "isolated processor", always, isolation, part_in_late_wake_ups,
     "on a processor that is not isolated the loop shares caches and time with others",
     "put isolcpus={cpu} on the kernel's command line, and start the application with "
     "taskset -c {cpu}",
     ""},
    {11, "full tickless mode", always, tickless, part_in_late_wake_ups,
     "nohz_full makes each entry into the kernel dearer, and a periodic loop enters it each "
     "cycle",
     "take nohz_full= off the kernel's command line", ""},
    {13, "virtual machine", always, hypervisor, cost_of_hypervisor,
     "a hypervisor stops the whole machine whenever it has something else to do",
     "run on bare metal, or pin the virtual processors to processors of their own", ""},
    {18, "load", always, load, cost_of_load,
     "whoever waits for a processor is in the loop's way, in caches and locks at least",
     "move the others away: taskset -pc {others} PROCESS",
     "for process in {busy}; do taskset -apc {others} \"$process\"; done"},
    {19, "real-time rivals", always, rivals, cost_of_rivals,
     "a thread of the same or a higher priority goes first, as long as it wants",
     "give them a lower priority (chrt -f -p 50 THREAD) or other processors (taskset -pc "
     "{others} THREAD)",
     "for process in {rivals}; do taskset -apc {others} \"$process\"; done"},
    {36, "wake-ups", always, wake_ups, cost_of_wake_ups,
     "what a cycle comes late by, a set-point comes late by",
     "see what stands above it: kernel, governor, sleep states, hypervisor, load, rivals", ""},
};

}  // namespace

std::span<const Check> processor_checks() {
    return kChecks;
}

}  // namespace doctor
