#include "tools/vexo/doctor/control_group.h"

#include <algorithm>
#include <cstdlib>

namespace doctor {
namespace {

bool has_word(const std::string& list, const std::string& word) {
    return (',' + list + ',').find(',' + word + ',') != std::string::npos;
}

struct Mount {
    std::string root;  // of the hierarchy, what is mounted
    std::string point;
    bool unified = false;
};

// Version 1's hierarchy with the processor controller, if there is one, else that of version 2.
Fact<Mount> find_mount(const Tree& tree) {
    const Fact<std::string> mounts = tree.text("/proc/self/mountinfo");
    Fact<Mount> found = mounts.known() ? Fact<Mount>::absent("no control groups are mounted")
                                       : mounts.then([](const std::string&) { return Mount(); });
    for (const std::string& line : split_lines(mounts.known() ? *mounts : "")) {
        const std::vector<std::string> words = split_words(line);
        const auto dash = std::find(words.begin(), words.end(), "-");
        if (words.size() < 10 || words.end() - dash < 4) {
            continue;
        }
        if (dash[1] == "cgroup" && has_word(dash[3], "cpu")) {
            return Mount{words[3], words[4], false};
        }
        if (dash[1] == "cgroup2") {
            found = Mount{words[3], words[4], true};
        }
    }
    return found;
}

// "4:cpu,cpuacct:/a/b" or, of version 2, "0::/a/b"
std::string own_path(const Tree& tree, bool unified) {
    const Fact<std::string> groups = tree.text("/proc/self/cgroup");
    for (const std::string& line : split_lines(groups.known() ? *groups : "")) {
        const size_t first = line.find(':');
        const size_t second = line.find(':', first + 1);
        if (second == std::string::npos) {
            continue;
        }
        const std::string controllers = line.substr(first + 1, second - first - 1);
        if (unified ? controllers.empty() : has_word(controllers, "cpu")) {
            return line.substr(second + 1);
        }
    }
    return "/";
}

// Our group and all above it, as far as the mount shows them.
std::vector<std::string> folders(const ControlGroup& group) {
    std::vector<std::string> folders;
    for (std::string path = group.path;; path.resize(path.rfind('/'))) {
        folders.push_back(*group.mount + path);
        if (path.empty()) {
            return folders;
        }
    }
}

// Processors that one group may use; 0 for no limit.
Fact<double> quota_of(const Tree& tree, const std::string& folder, bool unified) {
    if (unified) {
        return tree.text(folder + "/cpu.max").then([](const std::string& text) {
            const std::vector<std::string> words = split_words(text);
            return words.size() == 2 && words[0] != "max"
                       ? std::atof(words[0].c_str()) / std::max(1.0, std::atof(words[1].c_str()))
                       : 0.0;
        });
    }
    const Fact<int64_t> period = tree.number(folder + "/cpu.cfs_period_us");
    return tree.number(folder + "/cpu.cfs_quota_us").then([&](int64_t quota) {
        return quota > 0 && period.known() && *period > 0
                   ? static_cast<double>(quota) / static_cast<double>(*period)
                   : 0.0;
    });
}

}  // namespace

ControlGroup find_control_group(const Tree& tree) {
    ControlGroup group;
    const Fact<Mount> mount = find_mount(tree);
    group.mount = mount.then([](const Mount& found) { return found.point; });
    if (mount.known()) {
        group.unified = mount->unified;
        group.path = own_path(tree, mount->unified);
        if (group.path.compare(0, mount->root.size(), mount->root) == 0 && mount->root != "/") {
            group.path.erase(0, mount->root.size());
        }
        if (group.path == "/") {
            group.path.clear();
        }
    }
    return group;
}

Fact<int64_t> group_rt_runtime_us(const Tree& tree, const ControlGroup& group) {
    if (!group.mount.known()) {
        return group.mount.then([](const std::string&) { return int64_t{0}; });
    }
    if (group.unified) {
        return Fact<int64_t>::absent("control groups of version 2 have no real-time budgets");
    }
    return tree.number(*group.mount + group.path + "/cpu.rt_runtime_us");
}

Fact<double> group_quota(const Tree& tree, const ControlGroup& group) {
    if (!group.mount.known()) {
        return group.mount.then([](const std::string&) { return 0.0; });
    }
    if (!tree.exists(*group.mount + group.path)) {
        return Fact<double>::unknown(*group.mount + group.path + " is not to be seen from here");
    }
    double least = 0;
    for (const std::string& folder : folders(group)) {
        const Fact<double> quota = quota_of(tree, folder, group.unified);
        if (!quota.known() && !quota.absent()) {
            return quota;
        }
        if (quota.known() && *quota > 0) {
            least = least > 0 ? std::min(least, *quota) : *quota;
        }
    }
    return least;
}

int64_t group_throttled(const Tree& tree, const ControlGroup& group) {
    int64_t sum = 0;
    if (!group.mount.known()) {
        return sum;
    }
    for (const std::string& folder : folders(group)) {
        const Fact<std::string> text = tree.text(folder + "/cpu.stat");
        for (const std::string& line : split_lines(text.known() ? *text : "")) {
            const std::vector<std::string> words = split_words(line);
            if (words.size() == 2 && words[0] == "nr_throttled") {
                sum += std::atoll(words[1].c_str());
            }
        }
    }
    return sum;
}

}  // namespace doctor
