// Counters of the kernel, of which the doctor wants to know how far they go up in a run.
#ifndef TOOLS_VEXO_DOCTOR_COUNTERS_H
#define TOOLS_VEXO_DOCTOR_COUNTERS_H

#include "tools/vexo/doctor/threads.h"

namespace doctor {

// Of a port, in its statistics.
constexpr const char* kPortCounters[] = {"rx_errors",        "tx_errors",  "rx_crc_errors",
                                         "rx_fifo_errors",   "rx_dropped", "tx_dropped",
                                         "rx_missed_errors", "collisions"};

struct Counters {
    // By name; a counter that the host does not have is not there:
    //   steal_ms                time that the hypervisor took, all processors together
    //   sibling_busy_ms         time that the loop's siblings worked
    //   idle.NAME               how often the loop's processor slept that deeply
    //   throttled               how often the process's groups were held up for their quota
    //   carrier_changes, port.NAME  of the port: carrier, and each of its error counters
    //   softnet_dropped, softnet_squeezed
    //   retransmits             segments to or from the controller that were sent again
    //   interrupts              of the port, on the loop's processor
    //   numa_faults, compaction_stalls
    std::map<std::string, int64_t> values;
    std::vector<ThreadState> threads;
};

Counters read_counters(const Tree& tree, const Facts& facts);

// What went up between two readings.
std::map<std::string, int64_t> growth(const Counters& before, const Counters& after);

// Other threads that used a hundredth of a processor or more, the busiest first.
std::vector<BusyThread> busy_threads(const Counters& before, const Counters& after, double seconds,
                                     int loop);

}  // namespace doctor

#endif
