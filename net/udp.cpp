#include "net/udp.h"

#include <netinet/in.h>
#include <sys/socket.h>

#include "base/owned_descriptor.h"
#include "net/ipv4_address.h"
#include "net/out.h"
#include "net/tcp.h"

using vexo::Ipv4Address;

int socket_udp_create(int port, uint32_t address) {
    vexo::OwnedDescriptor made(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    const Ipv4Address local(address, port);
    const bool bound = static_cast<uint16_t>(port) != 0;
    if (!made || (bound && bind(made.get(), local.get(), local.size()) != 0)) {
        return -1;
    }
    return made.release();
}

long socket_udp_sendto(int fd, int port, uint32_t address, const void* data, unsigned int length) {
    // What ends in 255 counts as a broadcast address, whatever its network.
    if ((address & 0xFF) == 255) {
        const int on = 1;
        setsockopt(fd, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    }
    const Ipv4Address peer(address, port);
    return sendto(fd, data, length, 0, peer.get(), peer.size());
}

long socket_udp_recvfrom(int fd, uint16_t* port, uint32_t* address, void* buffer,
                         unsigned int capacity) {
    sockaddr_in peer{};
    socklen_t size = sizeof peer;
    const ssize_t count =
        recvfrom(fd, buffer, capacity, 0, reinterpret_cast<sockaddr*>(&peer), &size);
    if (count > 0) {
        vexo::store(port, ntohs(peer.sin_port));
        vexo::store(address, ntohl(peer.sin_addr.s_addr));
    }
    return count;
}

void socket_udp_close(int* fd) {
    socket_tcp_close(fd);
}
