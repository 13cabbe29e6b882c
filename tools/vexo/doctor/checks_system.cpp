// Checks of the kernel, and of what it allows the application.
#include <cstring>

#include "tools/vexo/doctor/predicates.h"

namespace doctor {
namespace {

constexpr int64_t kMemlockBytes = int64_t{64} << 20;
constexpr int64_t kSwappiness = 10;
constexpr double kSpinning = 80;  // % of a processor
constexpr double kSlowClockNs = 200;
constexpr int kCapabilityNice = 23;
constexpr int kCapabilityLockMemory = 14;

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

// A run without priority shows what it is to be without.
Cost cost_of_priority(const Facts& facts) {
    const bool without = facts.run.wake_ups.known() && facts.run.wake_ups->priority == 0;
    return without ? late_wake_ups(facts, 0.7) : Cost();
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
        if (share(runtime, period) < 0.95 || spinning(facts)) {
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

// ---- The table ----------------------------------------------------------------------------------

constexpr Check kChecks[] = {
    {1, "real-time kernel", always, realtime_kernel, cost_of_kernel,
     "without PREEMPT_RT the kernel holds up even the highest priority, for milliseconds now "
     "and then",
     "install the real-time kernel (Debian: linux-image-rt-amd64) and start it",
     "apt-get install linux-image-rt-amd64"},
    {2, "real-time priority", always, realtime_priority, cost_of_priority,
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
    {12, "clock source", always, clocksource, cost_of_clocksource,
     "hpet and acpi_pm take a microsecond a reading, and every timer reads it",
     "clocksource=tsc on the kernel's command line, if the kernel finds it stable",
     "echo tsc >/sys/devices/system/clocksource/clocksource0/current_clocksource"},
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
    {20, "processor quota", always, quota, cost_of_quota,
     "a group that has used up its quota stops until the next period, for tens of milliseconds",
     "take away the container's or service's limit (--cpus, CPUQuota=)", ""},
};

}  // namespace

std::span<const Check> system_checks() {
    return kChecks;
}

}  // namespace doctor
