// The outputs of the simulated arm: how each is called, its type, and where its value comes from.
#ifndef SIM_ARM_SIGNALS_H
#define SIM_ARM_SIGNALS_H

#include <functional>
#include <string>
#include <vector>

#include "sim/arm.h"
#include "sim/wire.h"

namespace sim {

struct Signal {
    std::string name;
    Type type;
    std::function<void(const Arm&, Writer&)> write;
};

// In the order of the built-in catalogue.
const std::vector<Signal>& arm_signals();

// Null when the arm has no output of this name and type.
const Signal* find_signal(const std::string& name, Type type);

}  // namespace sim

#endif
