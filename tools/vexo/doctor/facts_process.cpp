// What our own process may do: limits, capabilities, control groups.
#include <sched.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/vexo/doctor/control_group.h"
#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

Fact<int64_t> limit(__rlimit_resource resource) {
    rlimit limit{};
    if (getrlimit(resource, &limit) != 0) {
        return Fact<int64_t>::unknown(std::string("getrlimit: ") + std::strerror(errno));
    }
    return limit.rlim_cur == RLIM_INFINITY ? -1 : static_cast<int64_t>(limit.rlim_cur);
}

// A child tries, so that we never run at that priority ourselves.
Fact<int64_t> try_fifo() {
    const pid_t child = fork();
    if (child < 0) {
        return Fact<int64_t>::unknown(std::string("fork: ") + std::strerror(errno));
    }
    if (child == 0) {
        const sched_param parameter{.sched_priority = kLoopPriority};
        _exit(sched_setscheduler(0, SCHED_FIFO, &parameter) == 0 ? 0 : errno);
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR) {
    }
    return WIFEXITED(status) ? Fact<int64_t>(WEXITSTATUS(status))
                             : Fact<int64_t>::unknown("the child that tried it was killed");
}

// The rest of the line that begins with `name` in /proc/self/status.
Fact<std::string> status_line(const Tree& tree, const std::string& name) {
    const Fact<std::string> status = tree.text("/proc/self/status");
    if (!status.known()) {
        return status;
    }
    for (const std::string& line : split_lines(*status)) {
        if (line.compare(0, name.size(), name) == 0) {
            return line.substr(line.find_first_not_of(" \t", name.size()));
        }
    }
    return Fact<std::string>::absent("/proc/self/status: no " + name);
}

}  // namespace

Process read_process(const Tree& tree) {
    Process process;
    process.rtprio_limit = limit(RLIMIT_RTPRIO);
    process.memlock_limit = limit(RLIMIT_MEMLOCK);
    process.capabilities = status_line(tree, "CapEff:").then([](const std::string& text) {
        return uint64_t{std::strtoull(text.c_str(), nullptr, 16)};
    });
    process.swapped_kb = status_line(tree, "VmSwap:").then([](const std::string& text) {
        return int64_t{std::atoll(text.c_str())};
    });
    process.affinity = status_line(tree, "Cpus_allowed_list:").then(parse_processors);
    process.fifo_errno = try_fifo();
    const ControlGroup group = find_control_group(tree);
    process.group =
        group.mount.then([&group](const std::string& mount) { return mount + group.path; });
    process.group_rt_runtime_us = group_rt_runtime_us(tree, group);
    process.quota = group_quota(tree, group);
    return process;
}

}  // namespace doctor
