#include "tools/vexo/doctor/netlink.h"

#include <arpa/inet.h>
#include <linux/inet_diag.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <linux/sock_diag.h>
#include <linux/tcp.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/vexo/doctor/gather.h"

namespace doctor {
namespace {

constexpr size_t kBufferSize = 32768;

// Takes the messages of one datagram. Returns whether that was the last, and stores an error.
bool take_messages(char* data, size_t size, const std::function<void(const nlmsghdr&)>& take,
                   int& error) {
    auto length = static_cast<unsigned>(size);
    for (auto* message = reinterpret_cast<nlmsghdr*>(data); NLMSG_OK(message, length);
         message = NLMSG_NEXT(message, length)) {
        if (message->nlmsg_type == NLMSG_ERROR) {
            nlmsgerr failure{};
            std::memcpy(&failure, NLMSG_DATA(message), sizeof failure);
            error = -failure.error;
            return true;
        }
        if (message->nlmsg_type == NLMSG_DONE) {
            return true;
        }
        take(*message);
        if ((message->nlmsg_flags & NLM_F_MULTI) == 0) {
            return true;
        }
    }
    return false;
}

// The attribute of this type behind the fixed part of a message, null when it has none.
const rtattr* find_attribute(const nlmsghdr& message, size_t fixed, unsigned short type) {
    auto left = static_cast<int>(message.nlmsg_len - NLMSG_SPACE(fixed));
    const auto* attribute = reinterpret_cast<const rtattr*>(
        reinterpret_cast<const char*>(&message) + NLMSG_SPACE(fixed));
    for (; RTA_OK(attribute, left); attribute = RTA_NEXT(attribute, left)) {
        if (attribute->rta_type == type) {
            return attribute;
        }
    }
    return nullptr;
}

struct RouteRequest {
    nlmsghdr header;
    rtmsg route;
    rtattr attribute;
    in_addr destination;
};

struct SocketsRequest {
    nlmsghdr header;
    inet_diag_req_v2 sockets;
};

uint32_t address_in(const rtattr* attribute) {
    uint32_t value = 0;
    if (attribute != nullptr && RTA_PAYLOAD(attribute) >= sizeof value) {
        std::memcpy(&value, RTA_DATA(attribute), sizeof value);
    }
    return value;
}

int64_t segments_of(const nlmsghdr& message) {
    const rtattr* info = find_attribute(message, sizeof(inet_diag_msg), INET_DIAG_INFO);
    if (info == nullptr) {
        return 0;
    }
    tcp_info figures{};
    std::memcpy(&figures, RTA_DATA(info), std::min<size_t>(RTA_PAYLOAD(info), sizeof figures));
    return int64_t{figures.tcpi_total_retrans} + figures.tcpi_rcv_ooopack;
}

}  // namespace

int ask_netlink(int protocol, nlmsghdr& request, const std::function<void(const nlmsghdr&)>& take) {
    const int socket = ::socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC, protocol);
    if (socket < 0) {
        return errno;
    }
    const timeval limit{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    int error = send(socket, &request, request.nlmsg_len, 0) < 0 ? errno : 0;
    alignas(nlmsghdr) char buffer[kBufferSize];
    for (bool last = error != 0; !last;) {
        const ssize_t size = recv(socket, buffer, sizeof buffer, 0);
        error = size < 0 ? errno : 0;
        last = size < 0 || take_messages(buffer, static_cast<size_t>(size), take, error);
    }
    close(socket);
    return error;
}

Fact<Route> route_to(const std::string& address) {
    RouteRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = RTM_GETROUTE;
    request.header.nlmsg_flags = NLM_F_REQUEST;
    request.route.rtm_family = AF_INET;
    request.route.rtm_dst_len = 32;
    request.attribute = {sizeof request.attribute + sizeof request.destination, RTA_DST};
    inet_pton(AF_INET, address.c_str(), &request.destination);
    Route route;
    const int error = ask_netlink(NETLINK_ROUTE, request.header, [&route](const nlmsghdr& answer) {
        const uint32_t port = address_in(find_attribute(answer, sizeof(rtmsg), RTA_OIF));
        char name[IF_NAMESIZE] = "";
        route.interface = if_indextoname(port, name) != nullptr ? name : "";
        const in_addr gateway{address_in(find_attribute(answer, sizeof(rtmsg), RTA_GATEWAY))};
        char text[INET_ADDRSTRLEN] = "";
        route.gateway = gateway.s_addr != 0 ? inet_ntop(AF_INET, &gateway, text, sizeof text) : "";
    });
    if (error == ENETUNREACH || error == EHOSTUNREACH || error == EACCES || error == EINVAL) {
        return Route();  // there is none, or one that forbids it
    }
    return error == 0 ? Fact<Route>(route)
                      : Fact<Route>::unknown(std::string("netlink: ") + std::strerror(error));
}

int64_t retransmitted_segments(const std::string& address) {
    SocketsRequest request{};
    request.header.nlmsg_len = sizeof request;
    request.header.nlmsg_type = SOCK_DIAG_BY_FAMILY;
    request.header.nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    request.sockets.sdiag_family = AF_INET;
    request.sockets.sdiag_protocol = IPPROTO_TCP;
    request.sockets.idiag_ext = 1 << (INET_DIAG_INFO - 1);
    request.sockets.idiag_states = 1 << 1;  // established
    in_addr peer{};
    inet_pton(AF_INET, address.c_str(), &peer);
    int64_t sum = 0;
    const int error = ask_netlink(NETLINK_SOCK_DIAG, request.header, [&](const nlmsghdr& answer) {
        inet_diag_msg socket{};
        std::memcpy(&socket, NLMSG_DATA(&answer), sizeof socket);
        if (socket.id.idiag_dst[0] == peer.s_addr &&
            answer.nlmsg_len >= NLMSG_SPACE(sizeof socket)) {
            sum += segments_of(answer);
        }
    });
    return error == 0 ? sum : -1;
}

}  // namespace doctor
