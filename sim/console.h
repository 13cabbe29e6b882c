// Commands to running controllers, a line each.
#ifndef SIM_CONSOLE_H
#define SIM_CONSOLE_H

#include <memory>
#include <string>
#include <vector>

#include "sim/simulator.h"

namespace sim {

struct Running {
    std::string address;
    std::unique_ptr<Simulator> simulator;
};

// One line that tells what a controller has seen and sent.
std::string summary(const Running& running);

// What can be commanded, for users.
std::string console_help();

// Carries a command out, on all controllers or on that whose address stands in front of it, and
// returns what to tell: last a line "ok", or one that begins with "error: ".
std::string execute(const std::vector<Running>& all, const std::string& line);

}  // namespace sim

#endif
