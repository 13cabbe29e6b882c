#include "tests/support/network_namespace.h"

#include <gtest/gtest.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "tests/support/process.h"

namespace test {

namespace {

bool write_file(const char* path, const std::string& text) {
    std::ofstream file(path);
    file << text << std::flush;
    return file.good();
}

bool has_ip_tool() {
    return std::system("ip -Version >/dev/null 2>&1") == 0;
}

std::string refusal(const char* what) {
    return std::string("no network namespace: ") + what + ": " + std::strerror(errno);
}

std::string enter_with_user_namespace() {
    const std::string user = std::to_string(geteuid());
    const std::string group = std::to_string(getegid());
    if (unshare(CLONE_NEWUSER | CLONE_NEWNET) != 0) {
        return refusal("unshare");
    }
    if (!write_file("/proc/self/setgroups", "deny") ||
        !write_file("/proc/self/uid_map", "0 " + user + " 1") ||
        !write_file("/proc/self/gid_map", "0 " + group + " 1")) {
        return refusal("user mapping");
    }
    return {};
}

}  // namespace

std::string enter_network_namespace() {
    if (!has_ip_tool()) {
        return "no network namespace: iproute2 is missing";
    }
    if (unshare(CLONE_NEWNET) != 0) {
        if (const std::string reason = enter_with_user_namespace(); !reason.empty()) {
            return reason;
        }
    }
    // Neighbour discovery would add frames of its own to every link. Where there is no IPv6 there
    // is nothing to write to.
    write_file("/proc/sys/net/ipv6/conf/default/disable_ipv6", "1");
    write_file("/proc/sys/net/ipv6/conf/all/disable_ipv6", "1");
    run_ip("link set lo up");
    return {};
}

void make_veth_pair(const std::string& left, const std::string& left_mac, const std::string& right,
                    const std::string& right_mac) {
    run_ip("link add name " + left + " address " + left_mac + " type veth peer name " + right +
           " address " + right_mac);
    run_ip("link set " + left + " up");
    run_ip("link set " + right + " up");
    EXPECT_TRUE(wait_until([&] { return link_runs(left) && link_runs(right); }));
    // The kernel opens the transmit queue just after it says that the link runs, under the same
    // lock that this takes.
    run_ip("link set " + left + " up");
}

void run_ip(const std::string& arguments) {
    EXPECT_EQ(std::system(("ip " + arguments).c_str()), 0) << "ip " << arguments;
}

bool link_runs(const std::string& interface_name) {
    ifreq request{};
    interface_name.copy(request.ifr_name, IFNAMSIZ - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool known = ioctl(fd, SIOCGIFFLAGS, &request) == 0;
    close(fd);
    return known && (request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_RUNNING) != 0;
}

}  // namespace test
