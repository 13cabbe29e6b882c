/* General UDP sockets over IPv4, for an application's own datagrams.
 *
 * Addresses are 32-bit numbers and ports are numbers in host byte order (127.0.0.1 is 0x7F000001);
 * only the low 16 bits of a port count. A descriptor is a plain int that belongs to the caller, who
 * closes it with socket_udp_close; it is never 0, 1 or 2. A function that fails leaves the cause in
 * errno. Nothing here prints, logs or keeps state: every function may be called from any thread. */
#ifndef NET_UDP_H
#define NET_UDP_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Makes a blocking datagram socket with the close-on-exec flag. It is bound to `port` of the local
 * address (0: all addresses), or left unbound when `port` is 0: the system then chooses the port at
 * the first send, and `address` has no meaning.
 * Returns the descriptor, or -1, e.g. EADDRINUSE. Does not block. */
VEXO_API int socket_udp_create(int port, uint32_t address);

/* Sends one datagram of `length` bytes (at most 65507) to `port` at `address`. An address whose
 * last dotted part is 255 is taken for a broadcast address: the socket is first given the
 * permission to broadcast (SO_BROADCAST), which it keeps.
 * Returns `length`, or -1, e.g. EMSGSIZE. Blocks only while the send buffer is full. */
VEXO_API long socket_udp_sendto(int fd, int port, uint32_t address, const void* data,
                                unsigned int length);

/* Receives one datagram into `buffer`; what is beyond `capacity` bytes of it is lost. Waits for it
 * without limit, unless the caller made the socket non-blocking.
 * `port` and `address` (each may be null) take the sender's, on a result above 0 only.
 * Returns the number of bytes stored, 0 for an empty datagram, or -1 (EINTR when a signal handler
 * ran during the wait). */
VEXO_API long socket_udp_recvfrom(int fd, uint16_t* port, uint32_t* address, void* buffer,
                                  unsigned int capacity);

/* Closes `*fd` unless it is -1, and sets it to -1. A null `fd` is ignored. */
VEXO_API void socket_udp_close(int* fd);

VEXO_C_END

#endif
