#include "net/raw_open.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <cstring>

#include "base/owned_descriptor.h"
#include "net/raw_socket.h"
#include "wire/frame.h"

namespace vexo {
namespace {

// A request about an interface, all zero but for the name, which is cut at 15 characters.
ifreq request_about(const char* interface_name) {
    ifreq request{};
    if (interface_name != nullptr) {
        std::memcpy(request.ifr_name, interface_name, strnlen(interface_name, IFNAMSIZ - 1));
    }
    return request;
}

// The system rounds this up to its own shortest wait.
void set_shortest_timeout(int socket, int option) {
    const timeval shortest{.tv_sec = 0, .tv_usec = 1};
    setsockopt(socket, SOL_SOCKET, option, &shortest, sizeof shortest);
}

void forbid_routing(int socket) {
    const int on = 1;
    setsockopt(socket, SOL_SOCKET, SO_DONTROUTE, &on, sizeof on);
}

// 0 when there is no such interface.
int index_of(int socket, const char* interface_name) {
    ifreq request = request_about(interface_name);
    ioctl(socket, SIOCGIFINDEX, &request);
    return request.ifr_ifindex;
}

void raise_group_flags(int socket, const char* interface_name) {
    ifreq request = request_about(interface_name);
    ioctl(socket, SIOCGIFFLAGS, &request);
    request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_BROADCAST | IFF_MULTICAST);
    ioctl(socket, SIOCSIFFLAGS, &request);
}

int bind_to_interface(int socket, int index) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(wire::kEtherType);
    address.sll_ifindex = index;
    return bind(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

}  // namespace

int socket_raw_icmp_create(uint16_t protocol) {
    const int fd = OwnedDescriptor(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, protocol)).release();
    if (fd == -1) {
        return -1;
    }
    set_shortest_timeout(fd, SO_SNDTIMEO);
    forbid_routing(fd);
    return fd;
}

int socket_raw2_icmp_create(const char* interface_name, uint32_t* interface_index) {
    OwnedDescriptor made(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, htons(wire::kEtherType)));
    const int fd = made.release();  // stays open whatever follows
    if (fd == -1) {
        return -1;
    }
    set_shortest_timeout(fd, SO_SNDTIMEO);
    set_shortest_timeout(fd, SO_RCVTIMEO);
    forbid_routing(fd);
    const int index = index_of(fd, interface_name);
    raise_group_flags(fd, interface_name);
    if (bind_to_interface(fd, index) == -1) {
        return -1;
    }
    *interface_index = static_cast<uint32_t>(index);
    return fd;
}

}  // namespace vexo

int socket_get_macaddress(const char* interface_name, uint8_t mac[6]) {
    ifreq request = vexo::request_about(interface_name);
    request.ifr_addr.sa_family = AF_INET;
    const vexo::OwnedDescriptor fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const int result = ioctl(fd.get(), SIOCGIFHWADDR, &request);
    if (result == 0) {
        std::memcpy(mac, request.ifr_hwaddr.sa_data, 6);
    }
    return result;
}
