#include "sim/fault.h"

namespace sim {

bool Fault::befalls_controller() const {
    return reboot || silence || half_open || refuse || disconnect || recover || rate || drift ||
           clock_jitter || clock_step || error || versions || catalogue || !edits.empty();
}

}  // namespace sim
