// What a session counts.
#ifndef SESSION_STATISTICS_H
#define SESSION_STATISTICS_H

#include <array>

#include "session/counter.h"
#include "session/histogram.h"

namespace vexo::session {

struct Statistics {
    // Written by the I/O thread.
    OneWriter<uint64_t> packages;
    OneWriter<uint64_t> package_bytes;
    OneWriter<uint64_t> lost;
    OneWriter<uint64_t> malformed;
    OneWriter<uint64_t> foreign;
    OneWriter<uint64_t> kernel_drops;
    OneWriter<uint64_t> attempts;
    OneWriter<uint64_t> connections;
    OneWriter<uint64_t> cuts;
    OneWriter<uint64_t> cut_ns;
    OneWriter<uint64_t> longest_cut_ns;
    OneWriter<uint64_t> last_cut_ns;
    OneWriter<uint64_t> period_ns;

    // By any thread.
    std::array<Counter, VEXO_SESSION_CAUSES> late;
    Counter overwritten;
    Counter requests;
    Counter refused;
    Counter timed_out;
    Counter late_replies;
    Counter set_points;
    Counter acknowledged;
    Counter inputs;
    std::array<Histogram, VEXO_SESSION_MEASURES> measures;

    VexoSessionStatistics read() const;
};

}  // namespace vexo::session

#endif
