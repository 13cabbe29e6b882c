// What a port's driver tells (SIOCETHTOOL).
#ifndef TOOLS_VEXO_DOCTOR_ETHTOOL_H
#define TOOLS_VEXO_DOCTOR_ETHTOOL_H

#include "tools/vexo/doctor/facts.h"

namespace doctor {

// Stores interrupt moderation and Energy-Efficient Ethernet of the port.
void ask_driver(const std::string& name, Interface& interface);

}  // namespace doctor

#endif
