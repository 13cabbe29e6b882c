#include "tools/vexo/doctor/threads.h"

#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <optional>

namespace doctor {
namespace {

// Places in /proc/PROCESS/task/THREAD/stat, counted from the word behind the name.
enum Field : size_t {
    kUserTicks = 11,
    kSystemTicks = 12,
    kProcessor = 36,
    kPriority = 37,
    kFields = 38,
};

std::optional<ThreadState> parse(const std::string& stat) {
    const size_t begin = stat.find('(');
    const size_t end = stat.rfind(')');  // names may have parentheses
    if (begin == std::string::npos || end == std::string::npos) {
        return std::nullopt;
    }
    const std::vector<std::string> words = split_words(stat.substr(end + 1));
    if (words.size() < kFields) {
        return std::nullopt;
    }
    const auto number = [&words](Field field) { return std::atoll(words[field].c_str()); };
    ThreadState thread;
    thread.name = stat.substr(begin + 1, end - begin - 1);
    thread.ticks = number(kUserTicks) + number(kSystemTicks);
    thread.processor = number(kProcessor);
    thread.priority = number(kPriority);
    return thread;
}

}  // namespace

std::vector<ThreadState> read_threads(const Tree& tree) {
    std::vector<ThreadState> threads;
    const std::string own = std::to_string(getpid());
    for (const std::string& process : tree.names("/proc")) {
        if (std::isdigit(static_cast<unsigned char>(process[0])) == 0 || process == own) {
            continue;
        }
        const std::string tasks = "/proc/" + process + "/task";
        for (const std::string& name : tree.names(tasks)) {
            const Fact<std::string> stat = tree.text(tasks + '/' + name + "/stat");
            if (std::optional<ThreadState> thread = parse(stat.known() ? *stat : "")) {
                thread->process = std::atoll(process.c_str());
                thread->path = tasks + '/' + name;
                threads.push_back(*thread);
            }
        }
    }
    return threads;
}

}  // namespace doctor
