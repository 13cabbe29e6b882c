// Checks of the port to the controller, and of what the kernel takes from it.
#include <iterator>

#include "tools/vexo/doctor/counters.h"
#include "tools/vexo/doctor/predicates.h"

namespace doctor {
namespace {

constexpr int64_t kLeastSpeed = 100;  // Mbit/s
constexpr int64_t kFrame = 1500;
constexpr int64_t kQueue = int64_t{4} << 20;
constexpr int kCapabilityNetAdmin = 12;
constexpr int kCapabilityNetRaw = 13;

// ---- Privileges and queues ----------------------------------------------------------------------

Finding raw_privilege(const Facts& facts) {
    return judge_fact(facts.process.capabilities, [&](uint64_t) {
        return good_if(may(facts, kCapabilityNetRaw),
                       may(facts, kCapabilityNetRaw) ? "CAP_NET_RAW" : "no CAP_NET_RAW");
    });
}

Finding receive_queue(const Facts& facts) {
    if (may(facts, kCapabilityNetAdmin)) {
        return good("CAP_NET_ADMIN");
    }
    return judge_fact(facts.network.rmem_max, [](int64_t bytes) {
        return good_if(bytes >= kQueue, "net.core.rmem_max = " + std::to_string(bytes));
    });
}

Cost cost_of_queue(const Facts& facts) {
    if (!facts.run.stream.known()) {
        return {};
    }
    const auto drops = static_cast<double>(facts.run.stream->kernel_drops);
    return cost_of(facts, drops * 1000, number(drops, " frames found no room in the queue"));
}

Finding kernel_queue(const Facts& facts) {
    return judge_fact(grown(facts, "softnet_dropped"), [&](int64_t dropped) {
        return judge_fact(grown(facts, "softnet_squeezed"), [&](int64_t squeezed) {
            return good_if(dropped == 0 && squeezed == 0,
                           std::to_string(dropped) + " frames dropped, " +
                               std::to_string(squeezed) + " times not done in time");
        });
    });
}

Cost cost_of_kernel_queue(const Facts& facts) {
    return cost_of(facts,
                   static_cast<double>(grown_or_0(facts, "softnet_dropped")) * 1000 +
                       static_cast<double>(grown_or_0(facts, "softnet_squeezed")) * 100,
                   "packets waited in the kernel, or were dropped there");
}

// ---- The port -----------------------------------------------------------------------------------

Finding link(const Facts& facts) {
    const Interface& port = facts.interface;
    return judge_fact(port.operstate, [&](const std::string& state) -> Finding {
        if (state == "missing") {
            return {State::bad, "there is no " + facts.purpose.interface, "frames go nowhere",
                    "see `ip -br link` for the names of the ports"};
        }
        // Ports without a link of their own, such as tunnels, say "unknown".
        if (state != "up" && state != "unknown") {
            return bad(state);
        }
        if (!port.carrier.known() || *port.carrier == 0) {
            return port.carrier.known() ? bad("no carrier") : without(port.carrier);
        }
        return judge_fact(grown(facts, "carrier_changes"), [&](int64_t changes) {
            return good_if(changes == 0, changes == 0
                                             ? state
                                             : "the link changed " + std::to_string(changes) +
                                                   " times in the run");
        });
    });
}

Cost cost_of_link(const Facts& facts) {
    return cost_of(facts, static_cast<double>(grown_or_0(facts, "carrier_changes")) * 1e6,
                   "the link went down or up in the run");
}

Finding speed(const Facts& facts) {
    return judge_fact(facts.interface.speed, [&](int64_t speed) {
        if (speed <= 0) {
            return unknown("the port does not tell its speed");
        }
        const std::string duplex =
            facts.interface.duplex.known() ? *facts.interface.duplex : "unknown";
        const std::string fact = std::to_string(speed) + " Mbit/s, " + duplex + " duplex";
        if (speed >= kLeastSpeed && duplex == "unknown") {
            return unknown(fact);
        }
        return good_if(speed >= kLeastSpeed && duplex == "full", fact);
    });
}

Finding frame_size(const Facts& facts) {
    return judge_fact(facts.interface.mtu, [](int64_t mtu) {
        return good_if(mtu >= kFrame, "MTU " + std::to_string(mtu));
    });
}

std::map<std::string, int64_t> port_errors(const Facts& facts) {
    std::map<std::string, int64_t> errors;
    for (const auto& [name, count] : facts.run.growth) {
        if (name.rfind("port.", 0) == 0 && count > 0) {
            errors[name.substr(5)] = count;
        }
    }
    return errors;
}

Finding errors(const Facts& facts) {
    for (const char* counter : kPortCounters) {
        if (const Fact<int64_t> growth = grown(facts, std::string("port.") + counter);
            !growth.known()) {
            return without(growth);
        }
    }
    const std::map<std::string, int64_t> counted = port_errors(facts);
    return good_if(counted.empty(),
                   counted.empty() ? "none in the run" : joined(counted, [](const auto& one) {
                       return one.first + " " + std::to_string(one.second);
                   }));
}

Cost cost_of_errors(const Facts& facts) {
    double count = 0;
    for (const auto& [name, errors] : port_errors(facts)) {
        count += static_cast<double>(errors);
    }
    return cost_of(facts, count * 1000, number(count, " errors"));
}

Finding moderation(const Facts& facts) {
    return judge_fact(facts.interface.rx_usecs, [&](int64_t usecs) {
        return judge_fact(facts.interface.adaptive_rx, [usecs](bool adaptive) {
            return good_if(usecs == 0 && !adaptive,
                           "rx-usecs " + std::to_string(usecs) + (adaptive ? ", adaptive" : ""));
        });
    });
}

Finding energy_efficient(const Facts& facts) {
    return judge_fact(facts.interface.energy_efficient,
                      [](bool on) { return good_if(!on, on ? "on" : "off"); });
}

Finding kind_of_port(const Facts& facts) {
    const Interface& port = facts.interface;
    if (port.wireless.known() && *port.wireless) {
        return {State::bad, "wireless", "a radio link loses frames and sends them again later",
                "use a wired port"};
    }
    if (port.bridge.known() && !port.bridge->empty()) {
        return {State::bad, "member of the bridge " + *port.bridge,
                "a bridge's member sees no frames of its own",
                "name the bridge instead (--interface " + *port.bridge +
                    "), or take the port out of it: ip link set " + facts.purpose.interface +
                    " nomaster"};
    }
    return judge_fact(port.usb, [&](bool usb) {
        if (usb) {
            return bad("on USB");
        }
        return port.wireless.known() && port.bridge.known()
                   ? good("wired, on its own")
                   : unknown("whether it is wireless, or a member of a bridge");
    });
}

// Late packages that the way from the controller to this host answers for.
Cost cost_on_the_wire(const Facts& facts) {
    if (!facts.run.stream.known()) {
        return {};
    }
    int64_t late = 0;
    for (const char* cause : {"wire", "peer or wire"}) {
        const auto found = facts.run.stream->late.find(cause);
        late += found == facts.run.stream->late.end() ? 0 : found->second;
    }
    return cost_of(facts, static_cast<double>(late) * 500,
                   std::to_string(late) + " packages came late to this host");
}

// irqbalance leaves isolated processors alone.
Finding interrupts_elsewhere(const Facts& facts) {
    const std::string loop = std::to_string(facts.cpu.loop);
    if (facts.cpu.isolated.known() && contains(*facts.cpu.isolated, facts.cpu.loop)) {
        return good("on other processors than " + loop);
    }
    return judge_fact(facts.load.irqbalance, [&](bool runs) {
        return good_if(!runs, runs ? "irqbalance runs and may move them to processor " + loop
                                   : "on other processors than " + loop);
    });
}

Finding interrupts_on_loop(const Facts& facts) {
    return judge_fact(
        facts.interface.interrupts, [&](const std::map<std::string, Processors>& interrupts) {
            if (interrupts.empty()) {
                return unknown("none recorded");
            }
            std::map<std::string, Processors> here;
            std::copy_if(interrupts.begin(), interrupts.end(), std::inserter(here, here.end()),
                         [&](const auto& one) { return contains(one.second, facts.cpu.loop); });
            return here.empty() ? interrupts_elsewhere(facts)
                                : bad(joined(here, [](const auto& one) { return one.first; }) +
                                      " on the loop's processor " + std::to_string(facts.cpu.loop));
        });
}

Finding interrupts(const Facts& facts) {
    return on_the_loop(facts, interrupts_on_loop);
}

Cost cost_of_interrupts(const Facts& facts) {
    const auto count = static_cast<double>(grown_or_0(facts, "interrupts"));
    return cost_of(facts, count * 5, number(count, " interrupts on the loop's processor"));
}

// ---- The table ----------------------------------------------------------------------------------

constexpr Check kChecks[] = {
    {21, "right to send raw frames", raw_path, raw_privilege, not_measured,
     "without CAP_NET_RAW the system refuses raw sockets",
     "setcap cap_net_raw,cap_net_admin+ep ./my-application",
     "setcap cap_net_raw,cap_net_admin+ep ./my-application"},
    {22, "link", a_port, link, cost_of_link, "without a link nothing arrives",
     "look at the cable and the other end; ip link set {port} up; keep the network manager off "
     "the port",
     "ip link set {port} up"},
    {23, "speed", a_port, speed, not_measured,
     "a port forced to half duplex or 10 Mbit/s collides, and takes ten times as long for a "
     "package",
     "leave it to the two ends: ethtool -s {port} autoneg on", "ethtool -s {port} autoneg on"},
    {24, "frame size", a_port, frame_size, not_measured,
     "raw packages of up to 1440 bytes do not fit into a frame", "ip link set {port} mtu 1500",
     "ip link set {port} mtu 1500"},
    {25, "errors of the port", a_port, errors, cost_of_errors,
     "each of them is a package that was lost",
     "change the cable; enlarge the driver's rings: ethtool -G {port} rx 4096",
     "ethtool -G {port} rx 4096"},
    {26, "interrupt moderation", a_port, moderation, cost_on_the_wire,
     "the port waits so long with a package for more to come",
     "ethtool -C {port} adaptive-rx off rx-usecs 0",
     "ethtool -C {port} adaptive-rx off rx-usecs 0"},
    {27, "energy-efficient Ethernet", a_port, energy_efficient, cost_on_the_wire,
     "the link sleeps between packages, and takes tens of microseconds to wake up",
     "ethtool --set-eee {port} eee off", "ethtool --set-eee {port} eee off"},
    {28, "kind of port", a_port, kind_of_port, cost_on_the_wire,
     "USB takes packages in turns of 125 µs and more", "use a port on the board or on PCI", ""},
    {29, "interrupts of the port", a_port, interrupts, cost_of_interrupts,
     "each of them stops the loop for some microseconds",
     "stop irqbalance, and write other processors ({others}) to "
     "/proc/irq/NUMBER/smp_affinity_list",
     "systemctl stop irqbalance || true\n"
     "for number in {interrupts}; do echo {others} >\"/proc/irq/$number/smp_affinity_list\"; "
     "done"},
    {30, "kernel's receive queue", always, kernel_queue, cost_of_kernel_queue,
     "the kernel got more packets than it may take in one go",
     "sysctl -w net.core.netdev_budget=600 net.core.netdev_max_backlog=5000",
     "sysctl -w net.core.netdev_budget=600 net.core.netdev_max_backlog=5000"},
    {31, "room for received frames", raw_path, receive_queue, cost_of_queue,
     "while the application does not read, frames beyond that are lost",
     "sysctl -w net.core.rmem_max=4194304, or give the application CAP_NET_ADMIN",
     "sysctl -w net.core.rmem_max=4194304"},
};

}  // namespace

std::span<const Check> port_checks() {
    return kChecks;
}

}  // namespace doctor
