#include "tests/support/process.h"

#include <dirent.h>
#include <linux/capability.h>
#include <sched.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

namespace test {

namespace {

std::chrono::microseconds to_microseconds(const timeval& time) {
    return std::chrono::seconds(time.tv_sec) + std::chrono::microseconds(time.tv_usec);
}

// Whether the thread of this record in /proc is past its end: those who join it have been told, but
// it is listed for a moment more.
bool is_ending(const std::string& record) {
    constexpr unsigned kExiting = 0x4;
    unsigned flags = 0;
    std::sscanf(record.c_str() + record.rfind(')'), ") %*c %*d %*d %*d %*d %*d %u", &flags);
    return (flags & kExiting) != 0;
}

}  // namespace

bool wait_until(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::chrono::microseconds cpu_time() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return to_microseconds(usage.ru_utime) + to_microseconds(usage.ru_stime);
}

void run_ahead_of_others() {
    const sched_param priority{.sched_priority = 1};
    sched_setscheduler(0, SCHED_FIFO, &priority);
}

std::set<int> open_descriptors() {
    std::set<int> found;
    DIR* directory = opendir("/proc/self/fd");
    while (const dirent* entry = readdir(directory)) {
        if (entry->d_name[0] != '.') {
            found.insert(std::atoi(entry->d_name));
        }
    }
    found.erase(dirfd(directory));
    closedir(directory);
    return found;
}

ptrdiff_t thread_count() {
    const std::filesystem::directory_iterator threads("/proc/self/task");
    return std::count_if(begin(threads), end(threads), [](const auto& thread) {
        const std::string record = read_file(thread.path() / "stat");
        return !record.empty() && !is_ending(record);
    });
}

std::string own_loopback(int number) {
    const int pid = getpid();
    const int second = 1 + (pid / 250) % 250;
    const int third = 1 + pid % 250;
    return "127." + std::to_string(second) + "." + std::to_string(third) + "." +
           std::to_string(number);
}

int in_child(const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        _exit(body());
    }
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

bool give_up_privileges() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    const __user_cap_data_struct none[2]{};
    return syscall(SYS_capset, &header, none) == 0;
}

std::string read_file(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    text << file.rdbuf();
    return text.str();
}

}  // namespace test
