#include "tools/vexo/doctor/gather.h"

namespace doctor {

Memory read_memory(const Tree& tree) {
    Memory memory;
    memory.swaps = tree.text("/proc/swaps").then([](const std::string& text) {
        std::vector<std::string> swaps;
        const std::vector<std::string> lines = split_lines(text);
        for (size_t i = 1; i < lines.size(); ++i) {  // the first is the heading
            swaps.push_back(lines[i].substr(0, lines[i].find_first_of(" \t")));
        }
        return swaps;
    });
    memory.swappiness = tree.number("/proc/sys/vm/swappiness");
    return memory;
}

}  // namespace doctor
