// Questions to the kernel that netlink answers.
#ifndef TOOLS_VEXO_DOCTOR_NETLINK_H
#define TOOLS_VEXO_DOCTOR_NETLINK_H

#include <cstdint>
#include <functional>
#include <string>

struct nlmsghdr;

namespace doctor {

// Sends a request and hands each message of the answer to `take`. Returns 0, or an errno.
int ask_netlink(int protocol, nlmsghdr& request, const std::function<void(const nlmsghdr&)>& take);

// Segments of connections to this address that were sent again, or that came out of order, since
// these connections were made; -1 when the kernel does not tell.
int64_t retransmitted_segments(const std::string& address);

}  // namespace doctor

#endif
