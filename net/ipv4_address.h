// Socket addresses from numbers in host byte order.
#ifndef NET_IPV4_ADDRESS_H
#define NET_IPV4_ADDRESS_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>

namespace vexo {

class Ipv4Address {
public:
    // Only the low 16 bits of `port` count.
    Ipv4Address(uint32_t address, int port) {
        socket_address_.sin_family = AF_INET;
        socket_address_.sin_port = htons(static_cast<uint16_t>(port));
        socket_address_.sin_addr.s_addr = htonl(address);
    }

    const sockaddr* get() const { return reinterpret_cast<const sockaddr*>(&socket_address_); }
    static constexpr socklen_t size() { return sizeof(sockaddr_in); }

private:
    sockaddr_in socket_address_{};
};

}  // namespace vexo

#endif
