#include "sim/console.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace sim {

namespace {

using Those = std::vector<const Running*>;

// Those that are meant; an address in front is taken off the line.
Those addressed(const std::vector<Running>& all, std::string& line) {
    Those those;
    const size_t end = line.find(' ');
    const bool given = !line.empty() && std::isdigit(static_cast<unsigned char>(line.front())) != 0;
    for (const Running& running : all) {
        if (!given || running.address == line.substr(0, end)) {
            those.push_back(&running);
        }
    }
    if (those.empty()) {
        throw std::invalid_argument("no controller is on " + line.substr(0, end));
    }
    line.erase(0, given ? std::min(end, line.size() - 1) + 1 : 0);
    return those;
}

std::string without(const std::string& text, std::string_view beginning) {
    return text.starts_with(beginning) ? text.substr(beginning.size()) : text;
}

std::string carry_out(const Those& those, const std::string& command) {
    if (command == "help") {
        return console_help();
    }
    if (command == "status") {
        std::string told;
        for (const Running* running : those) {
            told += summary(*running);
        }
        return told;
    }
    const bool clears = command == "clear";
    const Fault fault = clears ? Fault{} : parse_fault(without(command, "fault "));
    for (const Running* running : those) {
        if (clears) {
            running->simulator->clear_faults();
        } else {
            running->simulator->inject(fault);
        }
    }
    return "";
}

}  // namespace

std::string summary(const Running& running) {
    const Counters counters = running.simulator->counters();
    std::ostringstream out;
    out << "vexo-sim: " << running.address << ": " << counters.connections << " connections, "
        << counters.requests << " requests (" << counters.refused << " refused), "
        << counters.set_points << " set-points, " << counters.inputs << " inputs, "
        << counters.packages_sent << " packages sent, " << counters.packages_dropped << " dropped, "
        << counters.frames_rejected << " frames rejected\n";
    return out.str();
}

std::string console_help() {
    return "package,lost,every=10    a fault, on every controller\n"
           "reboot 500               written with blanks\n"
           "127.0.0.2 reboot 500     on one controller\n"
           "clear                    no faults any more\n"
           "status                   what each controller has seen and sent\n"
           "help                     this\n";
}

std::string execute(const std::vector<Running>& all, const std::string& line) {
    try {
        std::string command = line;
        const Those those = addressed(all, command);
        return carry_out(those, command) + "ok\n";
    } catch (const std::exception& error) {
        return "error: " + std::string(error.what()) + '\n';
    }
}

}  // namespace sim
