#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include <chrono>

#include "sim/types.h"

namespace sim {

using Clock = std::chrono::steady_clock;

// The end of a span; one that lasts forever has none.
inline Clock::time_point after(Clock::time_point begin, Span span) {
    const auto most = std::chrono::floor<Span>(Clock::time_point::max() - begin);
    return span < most ? begin + span : Clock::time_point::max();
}

}  // namespace sim

#endif
