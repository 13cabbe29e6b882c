#include "tools/vexo/doctor/counters.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "tools/vexo/doctor/control_group.h"
#include "tools/vexo/doctor/netlink.h"

namespace doctor {
namespace {

using Values = std::map<std::string, int64_t>;

constexpr size_t kMostBusyThreads = 8;

int64_t tick_ms() {
    return 1000 / sysconf(_SC_CLK_TCK);
}

std::vector<std::string> lines_of(const Tree& tree, const std::string& path) {
    const Fact<std::string> text = tree.text(path);
    return split_lines(text.known() ? *text : "");
}

// "cpu3 user nice system idle iowait irq softirq steal ..."
int64_t busy_ticks(const std::vector<std::string>& words) {
    int64_t sum = 0;
    for (size_t i = 1; i < std::min<size_t>(words.size(), 8); ++i) {
        sum += i == 4 || i == 5 ? 0 : std::atoll(words[i].c_str());
    }
    return sum;
}

void read_processors(const Tree& tree, const Cpu& cpu, Values& values) {
    for (const std::string& line : lines_of(tree, "/proc/stat")) {
        const std::vector<std::string> words = split_words(line);
        if (words.size() < 9 || words[0].rfind("cpu", 0) != 0) {
            continue;
        }
        if (words[0] == "cpu") {
            values["steal_ms"] = std::atoll(words[8].c_str()) * tick_ms();
            continue;
        }
        const int number = std::atoi(words[0].c_str() + 3);
        if (cpu.siblings.known() && number != cpu.loop &&
            std::count(cpu.siblings->begin(), cpu.siblings->end(), number) != 0) {
            values["sibling_busy_ms"] += busy_ticks(words) * tick_ms();
        }
    }
}

void read_idle(const Tree& tree, int processor, Values& values) {
    const std::string states =
        "/sys/devices/system/cpu/cpu" + std::to_string(processor) + "/cpuidle";
    for (const std::string& name : tree.names(states)) {
        const Fact<std::string> title = tree.text(states + '/' + name + "/name");
        const Fact<int64_t> usage = tree.number(states + '/' + name + "/usage");
        if (title.known() && usage.known()) {
            values["idle." + *title] = *usage;
        }
    }
}

void read_port(const Tree& tree, const std::string& name, Values& values) {
    const std::string port = "/sys/class/net/" + name;
    if (const Fact<int64_t> changes = tree.number(port + "/carrier_changes"); changes.known()) {
        values["carrier_changes"] = *changes;
    }
    for (const char* counter : kPortCounters) {
        const Fact<int64_t> value = tree.number(port + "/statistics/" + counter);
        if (value.known()) {
            values[std::string("port.") + counter] = *value;
        }
    }
}

// A line for each processor, in hexadecimal: packets, dropped, squeezed, ...
void read_softnet(const Tree& tree, Values& values) {
    for (const std::string& line : lines_of(tree, "/proc/net/softnet_stat")) {
        unsigned dropped = 0;
        unsigned squeezed = 0;
        if (std::sscanf(line.c_str(), "%*x %x %x", &dropped, &squeezed) == 2) {
            values["softnet_dropped"] += dropped;
            values["softnet_squeezed"] += squeezed;
        }
    }
}

// "41:  1405  0  PCI-MSIX ...", below a line with the processors that are online.
void read_interrupts(const Tree& tree, const Facts& facts, Values& values) {
    if (!facts.interface.interrupts.known()) {
        return;
    }
    const std::vector<std::string> lines = lines_of(tree, "/proc/interrupts");
    const std::vector<std::string> heading = split_words(lines.empty() ? "" : lines[0]);
    const auto column =
        std::find(heading.begin(), heading.end(), "CPU" + std::to_string(facts.cpu.loop));
    if (column == heading.end()) {
        return;
    }
    const auto place = static_cast<size_t>(column - heading.begin()) + 1;
    for (const std::string& line : lines) {
        const std::vector<std::string> words = split_words(line);
        if (words.size() > place &&
            facts.interface.interrupts->count(words[0].substr(0, words[0].find(':'))) != 0) {
            values["interrupts"] += std::atoll(words[place].c_str());
        }
    }
}

void read_memory_events(const Tree& tree, Values& values) {
    for (const std::string& line : lines_of(tree, "/proc/vmstat")) {
        const std::vector<std::string> words = split_words(line);
        if (words.size() == 2 && (words[0] == "numa_hint_faults" || words[0] == "compact_stall")) {
            values[words[0] == "compact_stall" ? "compaction_stalls" : "numa_faults"] =
                std::atoll(words[1].c_str());
        }
    }
}

}  // namespace

Counters read_counters(const Tree& tree, const Facts& facts) {
    Counters counters;
    Values& values = counters.values;
    read_processors(tree, facts.cpu, values);
    read_idle(tree, facts.cpu.loop, values);
    read_softnet(tree, values);
    read_interrupts(tree, facts, values);
    read_memory_events(tree, values);
    if (const ControlGroup group = find_control_group(tree); group.mount.known()) {
        values["throttled"] = group_throttled(tree, group);
    }
    if (!facts.purpose.interface.empty()) {
        read_port(tree, facts.purpose.interface, values);
    }
    if (!facts.purpose.controller.empty() && tree.live()) {
        if (const int64_t segments = retransmitted_segments(facts.purpose.controller);
            segments >= 0) {
            values["retransmits"] = segments;
        }
    }
    counters.threads = read_threads(tree);
    return counters;
}

std::map<std::string, int64_t> growth(const Counters& before, const Counters& after) {
    Values result;
    for (const auto& [name, value] : after.values) {
        if (const auto earlier = before.values.find(name); earlier != before.values.end()) {
            result[name] = std::max<int64_t>(0, value - earlier->second);
        }
    }
    return result;
}

std::vector<BusyThread> busy_threads(const Counters& before, const Counters& after, double seconds,
                                     int loop) {
    std::map<std::string, int64_t> earlier;
    for (const ThreadState& thread : before.threads) {
        earlier[thread.path] = thread.ticks;
    }
    std::vector<BusyThread> busy;
    for (const ThreadState& thread : after.threads) {
        const auto found = earlier.find(thread.path);
        const int64_t ticks = thread.ticks - (found == earlier.end() ? 0 : found->second);
        const double percent = static_cast<double>(ticks * tick_ms()) / (10 * seconds);
        if (percent >= 1) {
            busy.push_back(
                {thread.name, thread.process, thread.priority, percent, thread.processor == loop});
        }
    }
    std::sort(busy.begin(), busy.end(),
              [](const BusyThread& a, const BusyThread& b) { return a.percent > b.percent; });
    busy.resize(std::min(busy.size(), kMostBusyThreads));
    return busy;
}

}  // namespace doctor
