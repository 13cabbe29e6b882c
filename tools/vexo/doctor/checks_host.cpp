// Checks of the host: kernel, limits, memory, processors, and who else wants them.
#include <cstring>

#include "tools/vexo/doctor/predicates.h"
#include "tools/vexo/doctor/tree.h"

namespace doctor {
namespace {

constexpr int64_t kMemlockBytes = int64_t{64} << 20;
constexpr int64_t kSwappiness = 10;
constexpr double kSpinning = 80;    // % of a processor
constexpr double kSiblingIdle = 5;  // % of a processor
constexpr double kPressure = 1;     // % of the time
constexpr double kSlowClockNs = 200;
constexpr int kCapabilityNice = 23;
constexpr int kCapabilityLockMemory = 14;

const char* always(const Facts&) {
    return nullptr;
}

bool may(const Facts& facts, int capability) {
    return facts.process.capabilities.known() &&
           (*facts.process.capabilities >> capability & 1) != 0;
}

// ---- Kernel -------------------------------------------------------------------------------------

Finding realtime_kernel(const Facts& facts) {
    return judge_fact(facts.kernel.realtime, [&](bool realtime) {
        return good_if(realtime, facts.kernel.version.known() ? *facts.kernel.version
                                 : realtime                   ? "PREEMPT_RT"
                                                              : "not PREEMPT_RT");
    });
}

Cost cost_of_kernel(const Facts& facts) {
    const Cost cost = late_wake_ups(facts, 0.5);
    const bool milliseconds = facts.run.wake_ups.known() && facts.run.wake_ups->max_us >= 1000;
    return cost.kind == Cost::Kind::some && !milliseconds ? Cost{Cost::Kind::none} : cost;
}

Finding is_0(const Fact<int64_t>& fact, const char* name) {
    return judge_fact(fact, [name](int64_t value) {
        return good_if(value == 0, std::string(name) + " = " + std::to_string(value));
    });
}

Finding numa_balancing(const Facts& facts) {
    return is_0(facts.kernel.numa_balancing, "kernel.numa_balancing");
}

Cost cost_of_numa_balancing(const Facts& facts) {
    return grown_or_0(facts, "numa_faults") == 0 ? Cost{Cost::Kind::none}
                                                 : late_wake_ups(facts, 0.1);
}

Finding watchdogs(const Facts& facts) {
    const Finding nmi = is_0(facts.kernel.nmi_watchdog, "kernel.nmi_watchdog");
    const Finding soft = is_0(facts.kernel.watchdog, "kernel.watchdog");
    for (const State state : {State::bad, State::unknown, State::good}) {
        if (nmi.state == state || soft.state == state) {
            return {state, nmi.fact + ", " + soft.fact};
        }
    }
    return nmi;
}

Finding timer_migration(const Facts& facts) {
    return is_0(facts.kernel.timer_migration, "kernel.timer_migration");
}

Finding huge_pages(const Facts& facts) {
    return judge_fact(facts.kernel.transparent_hugepage, [](const std::string& choice) {
        return good_if(choice == "never" || choice == "madvise", choice);
    });
}

Cost cost_of_huge_pages(const Facts& facts) {
    return grown_or_0(facts, "compaction_stalls") == 0 ? Cost{Cost::Kind::none}
                                                       : late_wake_ups(facts, 0.2);
}

Finding clocksource(const Facts& facts) {
    const bool guest = facts.cpu.hypervisor.known() && *facts.cpu.hypervisor;
    return judge_fact(facts.kernel.clocksource, [guest](const std::string& source) {
        return good_if(source == "tsc" || (guest && (source == "kvm-clock" ||
                                                     source == "hyperv_clocksource_tsc_page")),
                       source);
    });
}

Cost cost_of_clocksource(const Facts& facts) {
    if (!facts.run.wake_ups.known()) {
        return {};
    }
    const double read_ns = facts.run.wake_ups->clock_read_ns;
    const double readings = 2000 * facts.run.seconds;  // two in a cycle
    return cost_of(facts, read_ns > kSlowClockNs ? read_ns / 1000 * readings : 0,
                   "a reading of the clock took " + number(read_ns, " ns"));
}

// ---- Limits -------------------------------------------------------------------------------------

Fact<bool> priority_allowed(const Facts& facts) {
    if (may(facts, kCapabilityNice)) {
        return true;
    }
    return facts.process.rtprio_limit.then(
        [](int64_t limit) { return limit < 0 || limit >= kLoopPriority; });
}

bool fifo_worked(const Facts& facts) {
    return facts.process.fifo_errno.known() && *facts.process.fifo_errno == 0;
}

Finding realtime_priority(const Facts& facts) {
    if (fifo_worked(facts)) {
        return good("SCHED_FIFO at priority " + std::to_string(kLoopPriority) + " is allowed");
    }
    return judge_fact(priority_allowed(facts), [&](bool allowed) {
        const std::string limit = facts.process.rtprio_limit.known()
                                      ? std::to_string(*facts.process.rtprio_limit)
                                      : "unknown";
        return good_if(allowed, "limit of rtprio: " + limit);
    });
}

Finding group_budget(const Facts& facts) {
    const Fact<int64_t>& budget = facts.process.group_rt_runtime_us;
    if (budget.known() && *budget == 0) {
        return bad("cpu.rt_runtime_us = 0");
    }
    if (fifo_worked(facts)) {
        return good("SCHED_FIFO works in this group");
    }
    const Fact<bool> allowed = priority_allowed(facts);
    if (allowed.known() && *allowed && facts.process.fifo_errno.known()) {
        return bad(std::string("SCHED_FIFO is refused although the limit allows it: ") +
                   std::strerror(static_cast<int>(*facts.process.fifo_errno)));
    }
    return judge_fact(
        budget, [](int64_t value) { return good("cpu.rt_runtime_us = " + std::to_string(value)); });
}

std::vector<BusyThread> busy(const Facts& facts) {
    return facts.run.busy_threads.known() ? *facts.run.busy_threads : std::vector<BusyThread>();
}

bool spinning(const Facts& facts) {
    const std::vector<BusyThread> threads = busy(facts);
    return std::any_of(threads.begin(), threads.end(), [](const BusyThread& thread) {
        return thread.priority > 0 && thread.percent >= kSpinning;
    });
}

Finding realtime_throttling(const Facts& facts) {
    return judge_fact(facts.kernel.rt_runtime_us, [&](int64_t runtime) {
        const int64_t period =
            facts.kernel.rt_period_us.known() ? *facts.kernel.rt_period_us : 1'000'000;
        const std::string fact =
            "real-time threads may run " +
            (runtime < 0 ? "without a limit"
                         : std::to_string(runtime) + " of each " + std::to_string(period) + " µs");
        if (runtime < 0) {
            return good(fact);
        }
        if (runtime * 20 < period * 19 || spinning(facts)) {
            return bad(fact + (spinning(facts) ? ", and one spins" : ""));
        }
        return facts.run.busy_threads.known()
                   ? good(fact + ", and none spins")
                   : unknown(fact + "; no run has shown whether one spins");
    });
}

Cost cost_of_throttling(const Facts& facts) {
    return cost_of(facts, spinning(facts) ? 50'000 * facts.run.seconds : 0,
                   "a real-time thread spins and is stopped for 50 ms of each second");
}

Finding locked_memory(const Facts& facts) {
    return judge_fact(facts.process.memlock_limit, [&](int64_t limit) {
        const std::string fact = limit < 0 ? "no limit" : std::to_string(limit / 1024) + " KiB";
        return good_if(limit < 0 || limit >= kMemlockBytes || may(facts, kCapabilityLockMemory),
                       may(facts, kCapabilityLockMemory) ? fact + ", and CAP_IPC_LOCK" : fact);
    });
}

Finding swap_areas(const Facts& facts) {
    return judge_fact(facts.memory.swaps, [&](const std::vector<std::string>& swaps) {
        if (swaps.empty()) {
            return good("no swap");
        }
        return judge_fact(facts.memory.swappiness, [&](int64_t swappiness) {
            return good_if(swappiness <= kSwappiness,
                           std::to_string(swaps.size()) +
                               " swap areas, vm.swappiness = " + std::to_string(swappiness));
        });
    });
}

Finding swapping(const Facts& facts) {
    return judge_fact(facts.process.swapped_kb, [&](int64_t swapped) {
        return swapped > 0 ? bad(std::to_string(swapped) + " KiB of this process are swapped")
                           : swap_areas(facts);
    });
}

// A limit of a group that cannot be seen from a container shows in its counter only.
Finding quota(const Facts& facts) {
    return judge_fact(facts.process.quota, [&](double processors) {
        if (processors > 0) {
            return bad(number(processors, " processors"));
        }
        return judge_fact(grown(facts, "throttled"), [](int64_t times) {
            return good_if(times == 0,
                           times == 0 ? "none" : "held up " + std::to_string(times) + " times");
        });
    });
}

Cost cost_of_quota(const Facts& facts) {
    const auto throttled = static_cast<double>(grown_or_0(facts, "throttled"));
    return cost_of(facts, throttled * 50'000,
                   "the group was held up " + number(throttled) + " times");
}

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

Finding hyper_threads(const Facts& facts) {
    if (!facts.cpu.smt.known() || !*facts.cpu.smt) {
        return judge_fact(facts.cpu.smt, [](bool) { return good("off"); });
    }
    return judge_fact(facts.cpu.siblings, [&](const Processors& siblings) {
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

Cost cost_of_sibling(const Facts& facts) {
    return late_wake_ups(facts, 0.3);
}

Finding isolation(const Facts& facts) {
    return judge_fact(facts.cpu.isolated, [&](const Processors& isolated) {
        return good_if(
            contains(isolated, facts.cpu.loop),
            "the loop's processor is " + std::to_string(facts.cpu.loop) +
                ", isolated: " + (isolated.empty() ? "none" : format_processors(isolated)));
    });
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

Finding rivals(const Facts& facts) {
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
        return good_if(figures.p99_9_us < kWakeUpLimit && figures.missed * 1000 <= figures.count,
                       fact);
    });
}

Cost cost_of_wake_ups(const Facts& facts) {
    const WakeUps& figures = *facts.run.wake_ups;
    return cost_of(facts, figures.late_us + static_cast<double>(figures.missed) * 1000,
                   number(figures.late_us / facts.run.seconds, " µs too late in each second"));
}

}  // namespace

std::vector<Check> host_checks() {
    return {
        {1, "real-time kernel", always, realtime_kernel, cost_of_kernel,
         "without PREEMPT_RT the kernel holds up even the highest priority, for milliseconds now "
         "and then",
         "install the real-time kernel (Debian: linux-image-rt-amd64) and start it",
         "apt-get install linux-image-rt-amd64"},
        {2, "real-time priority", always, realtime_priority, not_measured,
         "a loop without real-time priority waits for everybody else",
         "allow rtprio 99 in /etc/security/limits.d, or LimitRTPRIO=99 in the service",
         "printf '%s - rtprio 99\\n' \"${SUDO_USER:-$USER}\" "
         ">/etc/security/limits.d/90-rtprio.conf"},
        {3, "real-time budget of the control group", always, group_budget, not_measured,
         "a group without a budget may not run real-time threads, whatever the limits allow",
         "give the group a budget in cpu.rt_runtime_us, or start the application in another group",
         "echo 900000 >{group}/cpu.rt_runtime_us"},
        {4, "real-time throttling", always, realtime_throttling, cost_of_throttling,
         "a real-time thread that spins is stopped for 50 ms of each second, and the loop with it",
         "find the thread that spins, or lift the limit: sysctl -w kernel.sched_rt_runtime_us=-1",
         "sysctl -w kernel.sched_rt_runtime_us=-1"},
        {5, "locked memory", always, locked_memory, not_measured,
         "memory that cannot be locked costs page faults in the loop",
         "allow memlock in /etc/security/limits.d, or LimitMEMLOCK=infinity in the service",
         "printf '%s - memlock unlimited\\n' \"${SUDO_USER:-$USER}\" "
         ">/etc/security/limits.d/90-memlock.conf"},
        {6, "swap", always, swapping, not_measured,
         "a page that was swapped out takes milliseconds to come back",
         "swapoff -a, or sysctl -w vm.swappiness=10 and mlockall in the application", "swapoff -a"},
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
        {12, "clock source", always, clocksource, cost_of_clocksource,
         "hpet and acpi_pm take a microsecond a reading, and every timer reads it",
         "clocksource=tsc on the kernel's command line, if the kernel finds it stable",
         "echo tsc >/sys/devices/system/clocksource/clocksource0/current_clocksource"},
        {13, "virtual machine", always, hypervisor, cost_of_hypervisor,
         "a hypervisor stops the whole machine whenever it has something else to do",
         "run on bare metal, or pin the virtual processors to processors of their own", ""},
        {14, "transparent huge pages", always, huge_pages, cost_of_huge_pages,
         "the kernel moves memory together while programs wait for it",
         "echo madvise >/sys/kernel/mm/transparent_hugepage/enabled",
         "echo madvise >/sys/kernel/mm/transparent_hugepage/enabled"},
        {15, "NUMA balancing", always, numa_balancing, cost_of_numa_balancing,
         "the kernel takes pages away to see who uses them: page faults, in spite of mlockall",
         "sysctl -w kernel.numa_balancing=0", "sysctl -w kernel.numa_balancing=0"},
        {16, "watchdogs", always, watchdogs, part_in_late_wake_ups,
         "each processor is interrupted to see whether it still lives",
         "sysctl -w kernel.nmi_watchdog=0 kernel.watchdog=0",
         "sysctl -w kernel.nmi_watchdog=0 kernel.watchdog=0"},
        {17, "timer migration", always, timer_migration, part_in_late_wake_ups,
         "other processors' timers move to this one, and expire there",
         "sysctl -w kernel.timer_migration=0", "sysctl -w kernel.timer_migration=0"},
        {18, "load", always, load, cost_of_load,
         "whoever waits for a processor is in the loop's way, in caches and locks at least",
         "move the others away: taskset -pc {others} PROCESS",
         "for process in {busy}; do taskset -apc {others} \"$process\"; done"},
        {19, "real-time rivals", always, rivals, cost_of_rivals,
         "a thread of the same or a higher priority goes first, as long as it wants",
         "give them a lower priority (chrt -f -p 50 THREAD) or other processors (taskset -pc "
         "{others} THREAD)",
         "for process in {rivals}; do taskset -apc {others} \"$process\"; done"},
        {20, "processor quota", always, quota, cost_of_quota,
         "a group that has used up its quota stops until the next period, for tens of milliseconds",
         "take away the container's or service's limit (--cpus, CPUQuota=)", ""},
        {36, "wake-ups", always, wake_ups, cost_of_wake_ups,
         "what a cycle comes late by, a set-point comes late by",
         "see what stands above it: kernel, governor, sleep states, hypervisor, load, rivals", ""},
    };
}

}  // namespace doctor
