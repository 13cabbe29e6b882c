// What the receive thread needs of the fast path beside the public calls.
#ifndef NET_RAW_INTERNAL_H
#define NET_RAW_INTERNAL_H

#include <cstdint>

namespace vexo {

// The socket of an instance, to wait on for messages; -1 for a bad instance.
int raw_descriptor(int instance);

// socket_raw_recvfrom, but in both modes it does not wait: -101 when nothing is queued.
long raw_try_receive(int instance, uint8_t* code, uint8_t** position, unsigned capacity);

}  // namespace vexo

#endif
