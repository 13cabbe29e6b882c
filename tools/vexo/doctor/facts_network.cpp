// The way to the controller: route, rivals, ports.
#include <arpa/inet.h>
#include <ifaddrs.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <future>

#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

constexpr uint16_t kPorts[] = {2295, 2297, 2299};
constexpr double kMostSeconds = 2;

uint32_t ipv4(const sockaddr* address) {
    sockaddr_in internet{};
    std::memcpy(&internet, address, sizeof internet);
    return internet.sin_addr.s_addr;
}

// Other ports that have an address in the controller's network: they may answer for each other.
Fact<std::vector<std::string>> rivals(const std::string& controller, const std::string& port) {
    ifaddrs* addresses = nullptr;
    if (getifaddrs(&addresses) != 0) {
        return Fact<std::vector<std::string>>::unknown(std::string("getifaddrs: ") +
                                                       std::strerror(errno));
    }
    in_addr peer{};
    inet_pton(AF_INET, controller.c_str(), &peer);
    std::vector<std::string> found;
    for (const ifaddrs* one = addresses; one != nullptr; one = one->ifa_next) {
        if (one->ifa_addr != nullptr && one->ifa_addr->sa_family == AF_INET &&
            one->ifa_netmask != nullptr && one->ifa_name != port) {
            const uint32_t mask = ipv4(one->ifa_netmask);
            if ((ipv4(one->ifa_addr) & mask) == (peer.s_addr & mask)) {
                found.emplace_back(one->ifa_name);
            }
        }
    }
    freeifaddrs(addresses);
    return found;
}

Fact<int64_t> rp_filter(const Tree& tree, const std::string& port) {
    const std::string folder = "/proc/sys/net/ipv4/conf/";
    const Fact<int64_t> all = tree.number(folder + "all/rp_filter");
    return tree.number(folder + port + "/rp_filter").then([&all](int64_t own) {
        return all.known() ? std::max(own, *all) : own;
    });
}

// Segments that this host's own firewall keeps from going out again, in all connections.
int64_t forbidden_segments(const Tree& tree) {
    const Fact<std::string> text = tree.text("/proc/self/net/netstat");
    const std::vector<std::string> lines = split_lines(text.known() ? *text : "");
    for (size_t i = 0; i + 1 < lines.size(); i += 2) {
        const std::vector<std::string> names = split_words(lines[i]);
        const std::vector<std::string> values = split_words(lines[i + 1]);
        const auto name = std::find(names.begin(), names.end(), "TCPRetransFail");
        if (name != names.end() && names.size() == values.size()) {
            return std::atoll(values[static_cast<size_t>(name - names.begin())].c_str());
        }
    }
    return 0;
}

std::string connect_outcome(int error) {
    switch (error) {
        case 0:
            return "open";
        case ECONNREFUSED:
            return "refused";
        case ETIMEDOUT:
        case EINPROGRESS:
            return "timed out";
        case ENETUNREACH:
        case EHOSTUNREACH:
            return "unreachable";
        case EPERM:
        case EACCES:
            return "forbidden here";
        default:
            return std::strerror(error);
    }
}

int connect_within(int socket, const sockaddr_in& peer, double limit_s) {
    if (connect(socket, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) {
        return 0;
    }
    if (errno != EINPROGRESS) {
        return errno;
    }
    pollfd event{socket, POLLOUT, 0};
    if (poll(&event, 1, static_cast<int>(limit_s * 1000)) <= 0) {
        return ETIMEDOUT;
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket, SOL_SOCKET, SO_ERROR, &error, &size);
    return error;
}

// All at once, as each may take the whole limit. The first segment is sent again after a second,
// and only then the kernel counts what the firewall makes of it.
std::map<std::string, std::string> ask_ports(const Tree& tree, const Purpose& purpose,
                                             double limit_s) {
    const int64_t forbidden = forbidden_segments(tree);
    std::map<std::string, std::future<std::string>> answers;
    for (const uint16_t port : kPorts) {
        if (port != 2299 || purpose.path != "raw") {
            answers[std::to_string(port)] = std::async(std::launch::async, [&, port] {
                return in_use(tree, purpose.controller, port)
                           ? "in use"
                           : ask_port(purpose.controller, port, std::min(limit_s, kMostSeconds));
            });
        }
    }
    std::map<std::string, std::string> states;
    for (auto& [port, answer] : answers) {
        states[port] = answer.get();
        if (states[port] == "timed out" && forbidden_segments(tree) > forbidden) {
            states[port] = "forbidden here";
        }
    }
    return states;
}

}  // namespace

bool in_use(const Tree& tree, const std::string& address, uint16_t port) {
    in_addr peer{};
    inet_pton(AF_INET, address.c_str(), &peer);
    char remote[32];
    std::snprintf(remote, sizeof remote, "%08X:%04X", peer.s_addr, port);
    const Fact<std::string> connections = tree.text("/proc/self/net/tcp");
    for (const std::string& line : split_lines(connections.known() ? *connections : "")) {
        const std::vector<std::string> words = split_words(line);
        if (words.size() > 3 && words[2] == remote && words[3] == "01") {
            return true;
        }
    }
    return false;
}

std::string ask_port(const std::string& address, uint16_t port, double limit_s) {
    sockaddr_in peer{};
    peer.sin_family = AF_INET;
    peer.sin_port = htons(port);
    inet_pton(AF_INET, address.c_str(), &peer.sin_addr);
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (socket < 0) {
        return std::strerror(errno);
    }
    const int error = connect_within(socket, peer, limit_s);
    close(socket);
    return connect_outcome(error);
}

Network read_network(const Tree& tree, const Purpose& purpose, double limit_s) {
    Network network;
    network.rmem_max = tree.number("/proc/sys/net/core/rmem_max");
    if (purpose.controller.empty()) {
        return network;
    }
    network.route = route_to(purpose.controller);
    network.rivals = rivals(purpose.controller, purpose.interface);
    network.rp_filter = rp_filter(tree, purpose.interface);
    network.ports = ask_ports(tree, purpose, limit_s);
    return network;
}

}  // namespace doctor
