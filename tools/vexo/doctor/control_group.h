// The control groups of our process that limit its time on processors.
#ifndef TOOLS_VEXO_DOCTOR_CONTROL_GROUP_H
#define TOOLS_VEXO_DOCTOR_CONTROL_GROUP_H

#include "tools/vexo/doctor/tree.h"

namespace doctor {

struct ControlGroup {
    Fact<std::string> mount;  // where the hierarchy with the processor controller is
    std::string path;         // of our group below it: "", or "/a/b"
    bool unified = false;     // the one hierarchy of version 2
};

ControlGroup find_control_group(const Tree& tree);

// What real-time threads of the group may use. Absent where the kernel has no such budgets.
Fact<int64_t> group_rt_runtime_us(const Tree& tree, const ControlGroup& group);

// Processors that the group and all above it leave us; 0: no limit.
Fact<double> group_quota(const Tree& tree, const ControlGroup& group);

// How often the group and those above it were held up for their quota.
int64_t group_throttled(const Tree& tree, const ControlGroup& group);

}  // namespace doctor

#endif
