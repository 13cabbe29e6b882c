// A network of the test's own, so that tests of real links neither need nor disturb the host's.
#ifndef TESTS_SUPPORT_NETWORK_NAMESPACE_H
#define TESTS_SUPPORT_NETWORK_NAMESPACE_H

#include <string>

namespace test {

// Moves the calling thread, and all threads it creates from now on, into a new network namespace
// with loopback up and IPv6 off. Unless the process may do so anyhow, it also becomes the root of a
// new user namespace, which works only while it has a single thread.
// Returns an empty text, or the reason why the machine refuses; then the test skips itself:
//     if (const std::string reason = test::enter_network_namespace(); !reason.empty()) {
//         GTEST_SKIP() << reason;
//     }
std::string enter_network_namespace();

// Makes a cable between two new Ethernet interfaces with the hardware addresses given, and waits
// until frames pass. A failure fails the test.
void make_veth_pair(const std::string& left, const std::string& left_mac, const std::string& right,
                    const std::string& right_mac);

// Runs `ip ARGUMENTS` of iproute2. A failure fails the test.
void run_ip(const std::string& arguments);

// Whether an interface is up and has a carrier.
bool link_runs(const std::string& interface_name);

}  // namespace test

#endif
