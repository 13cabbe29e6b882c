// Changes what a message says, as a fault asks.
#ifndef SIM_SPOIL_H
#define SIM_SPOIL_H

#include "sim/fault.h"
#include "sim/wire.h"

namespace sim {

void spoil(Bytes& message, const Fault& fault);

}  // namespace sim

#endif
