#include "tools/vexo/doctor/gather.h"

#include <sys/utsname.h>

#include "tools/vexo/times.h"

namespace doctor {

Facts gather(const Tree& tree, const Purpose& purpose, double limit_s) {
    utsname names{};
    uname(&names);
    Facts facts;
    facts.host = names.nodename;
    facts.time = tool::rfc3339(tool::realtime_now_ns());
    facts.purpose = purpose;
    facts.load = read_load(tree);  // first, before our own work is a part of it
    facts.kernel = read_kernel(tree);
    facts.process = read_process(tree);
    facts.memory = read_memory(tree);
    facts.cpu = read_cpu(tree, facts.process.affinity);
    if (!purpose.interface.empty()) {
        facts.interface = read_interface(tree, purpose.interface);
    }
    facts.network = read_network(tree, purpose, limit_s);
    return facts;
}

}  // namespace doctor
