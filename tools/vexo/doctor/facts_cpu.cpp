#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

constexpr const char* kCpus = "/sys/devices/system/cpu/";

std::string folder(int processor) {
    return kCpus + ("cpu" + std::to_string(processor));
}

int loop_processor(const Cpu& cpu, const Fact<Processors>& affinity) {
    const size_t online = cpu.online.known() ? cpu.online->size() : 0;
    if (affinity.known() && !affinity->empty() && affinity->size() < online) {
        return affinity->back();
    }
    if (cpu.isolated.known() && !cpu.isolated->empty()) {
        return cpu.isolated->back();
    }
    return online > 0 ? cpu.online->back() : 0;
}

Fact<std::map<std::string, Processors>> governors(const Tree& tree, const Processors& online) {
    std::map<std::string, Processors> governors;
    for (const int processor : online) {
        const Fact<std::string> governor =
            tree.text(folder(processor) + "/cpufreq/scaling_governor");
        if (!governor.known()) {
            return governor.then(
                [](const std::string&) { return std::map<std::string, Processors>(); });
        }
        governors[*governor].push_back(processor);
    }
    return governors;
}

Fact<std::vector<IdleState>> idle_states(const Tree& tree, int processor) {
    const std::string states = folder(processor) + "/cpuidle";
    std::vector<IdleState> result;
    for (const std::string& name : tree.names(states)) {
        const Fact<std::string> title = tree.text(states + '/' + name + "/name");
        const Fact<int64_t> latency = tree.number(states + '/' + name + "/latency");
        const Fact<int64_t> disabled = tree.number(states + '/' + name + "/disable");
        if (title.known() && latency.known() && disabled.known()) {
            result.push_back({*title, *latency, *disabled != 0});
        }
    }
    if (result.empty()) {
        return Fact<std::vector<IdleState>>::absent(states + ": no sleep states");
    }
    return result;
}

// Reading it tells what all who hold it open agree on. Only root may.
Fact<int64_t> dma_latency(const Tree& tree) {
    const char* const path = "/dev/cpu_dma_latency";
    if (!tree.live()) {
        return Fact<int64_t>::absent(path);
    }
    const int file = open(path, O_RDONLY | O_CLOEXEC);
    int32_t value = 0;
    const bool read_whole = file >= 0 && read(file, &value, sizeof value) == sizeof value;
    const std::string reason = std::string(path) + ": " + std::strerror(errno);
    if (file >= 0) {
        close(file);
    }
    return read_whole ? Fact<int64_t>(value) : Fact<int64_t>::unknown(reason);
}

// Some kernels print "(null)" for none.
Fact<Processors> nohz_full(const Tree& tree) {
    return tree.processors(std::string(kCpus) + "nohz_full");
}

Fact<bool> hypervisor(const Tree& tree) {
    const char* const path = "/proc/cpuinfo";
    const Fact<std::string> text = tree.text(path);
    const size_t flags = text.known() ? text->find("\nflags") : std::string::npos;
    if (flags == std::string::npos) {
        return Fact<bool>::unknown(text.known() ? std::string(path) + ": no flags" : text.reason());
    }
    const std::string line = text->substr(flags, text->find('\n', flags + 1) - flags);
    return (line + ' ').find(" hypervisor ") != std::string::npos;
}

}  // namespace

Cpu read_cpu(const Tree& tree, const Fact<Processors>& affinity) {
    Cpu cpu;
    cpu.online = tree.processors(std::string(kCpus) + "online");
    cpu.isolated = tree.processors(std::string(kCpus) + "isolated");
    cpu.nohz_full = nohz_full(tree);
    cpu.loop = loop_processor(cpu, affinity);
    cpu.governors = governors(tree, cpu.online.known() ? *cpu.online : Processors{cpu.loop});
    cpu.idle_states = idle_states(tree, cpu.loop);
    cpu.dma_latency_us = dma_latency(tree);
    cpu.smt = tree.number(std::string(kCpus) + "smt/active").then([](int64_t active) {
        return active != 0;
    });
    cpu.siblings = tree.processors(folder(cpu.loop) + "/topology/thread_siblings_list");
    cpu.hypervisor = hypervisor(tree);
    return cpu;
}

}  // namespace doctor
