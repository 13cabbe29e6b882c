// What came of a soak run.
#ifndef SOAK_REPORT_H
#define SOAK_REPORT_H

#include <memory>
#include <string>
#include <vector>

#include "soak/peer.h"
#include "soak/reader.h"

namespace soak {

// What the process holds.
struct Holdings {
    long memory;  // KiB resident
    size_t descriptors;
    size_t threads;

    static Holdings now();
};

struct Run {
    double seconds = 0;
    Holdings at_start{};
    Holdings at_end{};
    uint64_t set_points = 0;
    uint64_t refused = 0;
    uint64_t overruns = 0;
    uint64_t dropped_by_peer = 0;
    std::vector<std::unique_ptr<Reader>> readers;
};

// Prints the report, and writes each late cycle to the file `late`. Returns whether the library
// did all that it must.
bool report(const Run& run, const std::string& late);

}  // namespace soak

#endif
