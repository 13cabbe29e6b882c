// The threads of the host, out of /proc.
#ifndef TOOLS_VEXO_DOCTOR_THREADS_H
#define TOOLS_VEXO_DOCTOR_THREADS_H

#include <functional>

#include "tools/vexo/doctor/tree.h"

namespace doctor {

struct ThreadState {
    std::string name;
    int64_t process = 0;
    std::string path;       // /proc/PROCESS/task/THREAD
    int64_t ticks = 0;      // processor time used, in clock ticks
    int64_t processor = 0;  // where it ran last
    int64_t priority = 0;   // real-time priority; 0: none
};

// All threads but those of our own process. Those that end meanwhile are left out.
std::vector<ThreadState> read_threads(const Tree& tree);

}  // namespace doctor

#endif
