// Timers that one shared real-time thread drives with a tick of 0.5 ms.
#ifndef OS_SIMULATED_TIMER_H
#define OS_SIMULATED_TIMER_H

#include "os/timer_records.h"

namespace vexo {

// Starts the thread unless it runs. Returns whether it runs.
bool start_simulation();

// Takes the lowest free slot, which ticks from now on; `slot` is set before the first callback.
// Returns whether there was one.
bool request_simulated_timer(uint32_t period_us, TimerCallback callback, void* arg, uint32_t& slot);

// Gives a slot back and, unless called from a callback, waits until the slot's callback is not
// running, half a second at most. Returns 0, or -1 for a bad or free slot.
int32_t free_simulated_timer(int32_t slot);

}  // namespace vexo

#endif
