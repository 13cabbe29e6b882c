// Reading the facts, a function for each source.
#ifndef TOOLS_VEXO_DOCTOR_GATHER_H
#define TOOLS_VEXO_DOCTOR_GATHER_H

#include "tools/vexo/doctor/facts.h"
#include "tools/vexo/doctor/tree.h"

namespace doctor {

Kernel read_kernel(const Tree& tree);
Process read_process(const Tree& tree);
Memory read_memory(const Tree& tree);
// The processor of the control loop: the last one that the process is bound to, else the last
// isolated one, else the last one.
Cpu read_cpu(const Tree& tree, const Fact<Processors>& affinity);
Load read_load(const Tree& tree);
Interface read_interface(const Tree& tree, const std::string& name);
// Asks the controller's ports, if there is a controller; waits for them for `limit_s` at most.
Network read_network(const Tree& tree, const Purpose& purpose, double limit_s);

// The way to an address, as the kernel would send.
Fact<Route> route_to(const std::string& address);
// "open", "refused", "timed out", "unreachable", "forbidden here", or what the system says.
std::string ask_port(const std::string& address, uint16_t port, double limit_s);
// Whether somebody on this host holds a connection to this port of the address.
bool in_use(const Tree& tree, const std::string& address, uint16_t port);

// All facts but those of a run.
Facts gather(const Tree& tree, const Purpose& purpose, double limit_s);

}  // namespace doctor

#endif
