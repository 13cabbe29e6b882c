// How often which span was seen, in buckets of an eighth of an octave.
#ifndef SESSION_HISTOGRAM_H
#define SESSION_HISTOGRAM_H

#include <array>
#include <atomic>

#include "session/session.h"
#include "session/time.h"

namespace vexo::session {

// Counted by any threads, read by any.
class Histogram {
public:
    void add(Nanoseconds span);
    VexoSessionHistogram read() const;

private:
    std::array<std::atomic<uint64_t>, VEXO_SESSION_BUCKETS> buckets_{};
    std::atomic<uint64_t> sum_{0};
    std::atomic<uint64_t> least_{UINT64_MAX};
    std::atomic<uint64_t> most_{0};
};

}  // namespace vexo::session

#endif
