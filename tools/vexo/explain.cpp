#include "tools/vexo/explain.h"

#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <sstream>

namespace tool {
namespace {

struct Advice {
    const char* code;
    int system;        // 0: whatever it is
    const char* part;  // of the cause
    const char* remedy;
};

// The first that fits counts.
constexpr Advice kAdvice[] = {
    {"unreachable", ECONNREFUSED, "port 2295",
     "a host is there, and no controller serves on it: see whether the address is right, and "
     "whether "
     "the controller has started"},
    {"unreachable", ECONNREFUSED, "",
     "the controller serves some of its ports only: restart it, and see which firewall rejects "
     "this "
     "port"},
    {"unreachable", ENETUNREACH, "",
     "this host has no route there: give its port an address in the controller's network (ip "
     "addr)"},
    {"unreachable", EHOSTUNREACH, "",
     "a firewall or router rejects it: see `ip route get`, and the rules there and on the way"},
    {"unreachable", EACCES, "",
     "this host's own rules forbid it: see `ip route get` and `nft list ruleset`"},
    {"unreachable", EINVAL, "", "a route of this host swallows it: see `ip route get`"},
    {"unreachable", 0, "does not answer",
     "a firewall swallows it, or nobody is there: try `ping`, and see the rules on the way"},
    {"timed_out", 0, "negotiating",
     "it takes connections and says nothing: see that it is a controller, then restart it"},
    {"timed_out", 0, "reading catalogue",
     "it answers, but not for its catalogue: give it longer with --timeout, or restart it"},
    {"timed_out", 0, "session is",
     "it did not answer for the recipe: give it longer with --timeout, or restart it"},
    {"timed_out", 0, "", "give it longer with --timeout; it may be carried out all the same"},
    {"cut", 0, "",
     "it restarts, or another program has connected: a controller holds one session. Try again"},
    {"not_connected", 0, "",
     "nothing was sent: see whether the controller restarts, and try again"},
    {"silent", 0, "answer requests",
     "it takes connections and says nothing: see that it is a controller, then restart it"},
    {"silent", 0, "", "see the cable, and whether the controller still runs"},
    {"out_of_step", 0, "catalogue",
     "its catalogue is damaged, or this is no controller: restart it, and see the address"},
    {"out_of_step", 0, "",
     "somebody else uses the connection, or this is no controller: see the address and --mode"},
    {"catalogue_changed", 0, "",
     "the controller came back with another catalogue: see `vexo find NAME`, and start again"},
    {"refused", 0, "protocol version", "older controllers know the first one only: say --mode 1"},
    {"refused", 0, "raw path",
     "leave --raw out, or switch raw Ethernet on in the controller and name its port"},
    {"refused", 0, "catalogue", "the controller does not give its catalogue: restart it"},
    {"refused", 0, "recipe of the inputs",
     "another program may own these inputs: see the status in the controller's manual"},
    {"refused", 0, "recipe",
     "ask for fewer variables, or see the status in the controller's manual"},
    {"refused", 0, "start the stream",
     "see whether the controller is ready, and the status in its manual"},
    {"refused", 0, "set-point",
     "an error may be set: `vexo read error_code` shows it, `vexo call resetError` resets it"},
    {"refused", 0, "", "see the status in the controller's manual"},
    {"not_permitted", 0, "",
     "run it as root, or give it the right once: setcap cap_net_raw+ep on the program"},
    {"no_interface", 0, "", "name one that `ip link` lists, and that is up"},
    {"too_large", 0, "", "name fewer variables"},
};

bool fits(const Advice& advice, const Failure& failure) {
    return failure.code == advice.code && (advice.system == 0 || advice.system == failure.system) &&
           failure.cause.find(advice.part) != std::string::npos;
}

// The kernel has asked for its hardware address in vain.
bool nobody_answers_for(const std::string& address) {
    std::ifstream table("/proc/net/arp");
    std::string line;
    while (std::getline(table, line)) {
        std::string entry;
        std::string type;
        std::string flags;
        std::istringstream(line) >> entry >> type >> flags;
        if (entry == address && flags == "0x0") {
            return true;
        }
    }
    return false;
}

void look_at_neighbours(Failure& failure, const Options& options) {
    if (failure.cause.find("does not answer") != std::string::npos &&
        nobody_answers_for(options.host)) {
        failure.cause = "nobody on the link answers for " + options.host;
        failure.remedy = "see the address, the cable, and whether the controller is switched on";
    }
}

// What the kernel tells of an interface by one of its requests; zeros when it does not.
ifreq asked(const std::string& interface, unsigned long request) {
    ifreq answer{};
    interface.copy(answer.ifr_name, sizeof answer.ifr_name - 1);
    const int descriptor = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (ioctl(descriptor, request, &answer) != 0) {
        answer = {};
    }
    close(descriptor);
    return answer;
}

// The connections do not go over the port that the raw frames should come over.
void look_at_port(Failure& failure, const Options& options) {
    const std::string& port = options.raw;
    const int mtu = asked(port, SIOCGIFMTU).ifr_mtu;
    if ((asked(port, SIOCGIFFLAGS).ifr_flags & IFF_RUNNING) == 0) {
        failure.cause = "no package comes over " + port + ", which is down or has no cable";
        failure.remedy = "plug the cable in, and `ip link set " + port + " up`";
    } else if (mtu > 0 && mtu < 1500) {
        failure.cause = "no package comes over " + port + ", whose MTU is " + std::to_string(mtu);
        failure.remedy = "packages may need more: `ip link set " + port + " mtu 1500`";
    } else {
        failure.cause = "the controller is connected, and no package comes over " + port;
        failure.remedy = "see that this is the port that leads to it";
    }
}

}  // namespace

Failure explained(Failure failure, const Options& options) {
    const auto* advice = std::find_if(std::begin(kAdvice), std::end(kAdvice),
                                      [&](const Advice& each) { return fits(each, failure); });
    if (failure.from_session && advice != std::end(kAdvice)) {
        failure.remedy = advice->remedy;
    }
    if (failure.code == "unreachable") {
        look_at_neighbours(failure, options);
    } else if (failure.code == "silent" && !options.raw.empty()) {
        look_at_port(failure, options);
    }
    return failure;
}

}  // namespace tool
