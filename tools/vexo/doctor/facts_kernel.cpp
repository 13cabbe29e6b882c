#include <sys/utsname.h>

#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

Fact<std::string> version(const Tree& tree) {
    if (!tree.live()) {
        return tree.text("/proc/version");
    }
    utsname names{};
    uname(&names);
    return std::string(names.release) + ' ' + names.version;
}

Fact<bool> realtime(const Tree& tree, const Fact<std::string>& version) {
    if (const Fact<int64_t> said = tree.number("/sys/kernel/realtime"); said.known()) {
        return *said == 1;
    }
    return version.then([](const std::string& text) {
        return text.find("PREEMPT_RT") != std::string::npos ||
               text.find("PREEMPT RT") != std::string::npos;
    });
}

// "always [madvise] never" -> "madvise"
std::string chosen(const std::string& choices) {
    const size_t begin = choices.find('[');
    const size_t end = choices.find(']');
    return begin < end && end != std::string::npos ? choices.substr(begin + 1, end - begin - 1)
                                                   : choices;
}

}  // namespace

Kernel read_kernel(const Tree& tree) {
    Kernel kernel;
    kernel.version = version(tree);
    kernel.realtime = realtime(tree, kernel.version);
    kernel.rt_runtime_us = tree.number("/proc/sys/kernel/sched_rt_runtime_us");
    kernel.rt_period_us = tree.number("/proc/sys/kernel/sched_rt_period_us");
    kernel.transparent_hugepage =
        tree.text("/sys/kernel/mm/transparent_hugepage/enabled").then(chosen);
    kernel.numa_balancing = tree.number("/proc/sys/kernel/numa_balancing");
    kernel.nmi_watchdog = tree.number("/proc/sys/kernel/nmi_watchdog");
    kernel.watchdog = tree.number("/proc/sys/kernel/watchdog");
    kernel.timer_migration = tree.number("/proc/sys/kernel/timer_migration");
    kernel.clocksource =
        tree.text("/sys/devices/system/clocksource/clocksource0/current_clocksource");
    return kernel;
}

}  // namespace doctor
