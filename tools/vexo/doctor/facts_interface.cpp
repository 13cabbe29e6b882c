// The port that leads to the controller.
#include <net/if_arp.h>

#include "tools/vexo/doctor/ethtool.h"
#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

std::string last_part(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// Interrupts of the device behind the port; a virtio port's device is below that which has them.
std::vector<std::string> interrupt_numbers(const Tree& tree, const std::string& port) {
    for (const char* folder : {"/device/msi_irqs", "/device/../msi_irqs"}) {
        if (std::vector<std::string> numbers = tree.names(port + folder); !numbers.empty()) {
            return numbers;
        }
    }
    const Fact<std::string> single = tree.text(port + "/device/irq");
    return single.known() && *single != "0" ? std::vector<std::string>{*single}
                                            : std::vector<std::string>();
}

Fact<std::map<std::string, Processors>> interrupts(const Tree& tree, const std::string& port) {
    using Result = Fact<std::map<std::string, Processors>>;
    std::map<std::string, Processors> result;
    for (const std::string& number : interrupt_numbers(tree, port)) {
        const std::string folder = "/proc/irq/" + number;
        Fact<Processors> where = tree.processors(folder + "/effective_affinity_list");
        if (!where.known()) {
            where = tree.processors(folder + "/smp_affinity_list");
        }
        if (where.known()) {
            result[number] = *where;
        } else if (!where.absent()) {
            return Result::unknown(where.reason());
        }
    }
    return result.empty() ? Result::absent("the port has no interrupts of its own")
                          : Result(result);
}

Interface missing(const std::string& name) {
    Interface interface;
    interface.operstate = std::string("missing");
    const std::string reason = "there is no " + name;
    interface.carrier = interface.speed = interface.mtu = interface.rx_usecs =
        Fact<int64_t>::absent(reason);
    interface.loopback = interface.wireless = interface.usb = interface.adaptive_rx =
        interface.energy_efficient = Fact<bool>::absent(reason);
    interface.duplex = interface.bridge = Fact<std::string>::absent(reason);
    interface.interrupts = Fact<std::map<std::string, Processors>>::absent(reason);
    return interface;
}

void read_kind(const Tree& tree, const std::string& port, Interface& interface) {
    interface.loopback =
        tree.number(port + "/type").then([](int64_t type) { return type == ARPHRD_LOOPBACK; });
    interface.wireless = tree.exists(port + "/phy80211") || tree.exists(port + "/wireless");
    interface.bridge =
        tree.exists(port + "/brport") ? last_part(tree.real_path(port + "/master")) : "";
    interface.usb = tree.real_path(port + "/device").find("/usb") != std::string::npos;
}

}  // namespace

Interface read_interface(const Tree& tree, const std::string& name) {
    const std::string port = "/sys/class/net/" + name;
    if (!tree.exists(port)) {
        return missing(name);
    }
    Interface interface;
    interface.operstate = tree.text(port + "/operstate");
    interface.carrier = tree.number(port + "/carrier");
    interface.speed = tree.number(port + "/speed");
    interface.duplex = tree.text(port + "/duplex");
    interface.mtu = tree.number(port + "/mtu");
    interface.interrupts = interrupts(tree, port);
    read_kind(tree, port, interface);
    if (tree.live()) {
        ask_driver(name, interface);
    }
    return interface;
}

}  // namespace doctor
