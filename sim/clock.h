#ifndef SIM_CLOCK_H
#define SIM_CLOCK_H

#include <chrono>

namespace sim {

using Clock = std::chrono::steady_clock;

}  // namespace sim

#endif
