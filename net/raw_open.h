// The sockets of the two modes of the fast path.
#ifndef NET_RAW_OPEN_H
#define NET_RAW_OPEN_H

#include <cstdint>

namespace vexo {

// A raw IPv4 socket for `protocol` (IP mode). Returns the descriptor or -1.
int socket_raw_icmp_create(uint16_t protocol);

// A packet socket for our EtherType, bound to the interface (Ethernet mode), whose index is stored
// when the socket is had. An unknown name has the index 0, which stands for every interface.
// Returns the descriptor, or -1; after a failed bind the descriptor stays open.
int socket_raw2_icmp_create(const char* interface_name, uint32_t* interface_index);

}  // namespace vexo

#endif
