// The run that shows which suspect costs something.
#ifndef TOOLS_VEXO_DOCTOR_RUN_H
#define TOOLS_VEXO_DOCTOR_RUN_H

#include <functional>

#include "tools/vexo/doctor/tree.h"

namespace doctor {

// Waits for a span in seconds. Returns false when it was told to end before.
using Wait = std::function<bool(double seconds)>;

// Wakes up at the loop's pace for so many seconds, receives what the controller streams, and reads
// the kernel's counters before and after. The controller may take `limit_s` to begin.
Run make_run(const Tree& tree, const Facts& facts, double seconds, double limit_s,
             const Wait& wait);

}  // namespace doctor

#endif
