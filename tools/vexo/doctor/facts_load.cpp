// Who else wants the processors.
#include <algorithm>
#include <cstdio>

#include "tools/vexo/doctor/gather.h"
#include "tools/vexo/doctor/threads.h"

namespace doctor {
namespace {

// "some avg10=1.50 avg60=..."
Fact<double> pressure(const Tree& tree) {
    const Fact<std::string> text = tree.text("/proc/pressure/cpu");
    if (!text.known()) {
        return Fact<double>::unknown(text.reason() + " (the kernel's option psi=1 turns it on)");
    }
    double share = 0;
    if (std::sscanf(text->c_str(), "some avg10=%lf", &share) != 1) {
        return Fact<double>::unknown("/proc/pressure/cpu: no avg10");
    }
    return share;
}

// The kernel's own threads of the highest priority, which every host has on each processor.
bool belongs_to_each_processor(const std::string& name) {
    return name.rfind("migration/", 0) == 0 || name.rfind("idle_inject/", 0) == 0 ||
           name.rfind("watchdog/", 0) == 0 || name.rfind("stopper/", 0) == 0;
}

Processors allowed(const Tree& tree, const ThreadState& thread) {
    const Fact<std::string> status = tree.text(thread.path + "/status");
    const std::string name = "Cpus_allowed_list:";
    for (const std::string& line : split_lines(status.known() ? *status : "")) {
        if (line.rfind(name, 0) == 0) {
            return parse_processors(line.substr(line.find_first_not_of(" \t", name.size())));
        }
    }
    return {static_cast<int>(thread.processor)};
}

Fact<std::vector<Thread>> realtime_threads(const Tree& tree,
                                           const std::vector<ThreadState>& threads) {
    if (threads.empty()) {
        return Fact<std::vector<Thread>>::unknown("/proc shows no other process");
    }
    std::vector<Thread> result;
    for (const ThreadState& thread : threads) {
        if (thread.priority > 0 && !belongs_to_each_processor(thread.name)) {
            result.push_back({thread.name, thread.process, thread.priority, allowed(tree, thread)});
        }
    }
    return result;
}

}  // namespace

Load read_load(const Tree& tree) {
    Load load;
    const std::vector<ThreadState> threads = read_threads(tree);
    load.pressure = pressure(tree);
    load.realtime_threads = realtime_threads(tree, threads);
    // The kernel's first thread is there for whoever sees all of them.
    load.all_visible =
        tree.text("/proc/2/comm").known() && *tree.text("/proc/2/comm") == "kthreadd";
    load.irqbalance = load.realtime_threads.then([&threads](const std::vector<Thread>&) {
        return std::any_of(threads.begin(), threads.end(),
                           [](const ThreadState& thread) { return thread.name == "irqbalance"; });
    });
    return load;
}

}  // namespace doctor
