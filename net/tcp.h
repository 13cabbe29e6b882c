/* General TCP sockets over IPv4, for an application's own connections. The exchange with a
 * controller does not use them.
 *
 * Addresses are 32-bit numbers and ports are numbers in host byte order (127.0.0.1 is 0x7F000001);
 * only the low 16 bits of a port count. A descriptor is a plain int that belongs to the caller, who
 * closes it with socket_tcp_close; it is never 0, 1 or 2. A function that fails leaves the cause in
 * errno and no descriptor behind. Nothing here prints, logs or keeps state: every function may be
 * called from any thread, and different threads may use one socket as the system allows. */
#ifndef NET_TCP_H
#define NET_TCP_H

#include <stdint.h>
#include <sys/time.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Makes a socket send at once (TCP_NODELAY 1, tcp(7)) and with low delay (IP_TOS 0x10, ip(7)).
 * Returns 0, or -1 at the first option that cannot be set. Does not block. */
VEXO_API int socket_tcp_set_ipv4_options(int fd);

/* Makes the system probe a silent peer, and give it up about 5 seconds after the last traffic:
 * SO_KEEPALIVE, first probe after 3 seconds (TCP_KEEPIDLE), then every second (TCP_KEEPINTVL),
 * dead after 2 probes without an answer (TCP_KEEPCNT). Options that cannot be set are passed over
 * in silence. Does not block. */
VEXO_API void socket_tcp_set_keepalive(int fd);

/* Connects to `port` at `address`, with the options of socket_tcp_set_ipv4_options set and the
 * close-on-exec flag.
 *
 *   fd        set to -1 first, and to the connected descriptor on success
 *   blocking  0: a non-blocking socket, which stays so; the call waits at most half a second for
 *             the connection. Otherwise: a blocking socket; the call waits as long as the system
 *             does, which may be minutes
 *
 * Returns 0, or -1 with errno among others
 *   ECONNREFUSED  nobody listens there,
 *   ETIMEDOUT     no answer in time,
 *   EINTR         a signal handler ran during the wait: it is not resumed,
 *   EINVAL        `fd` is null. */
VEXO_API int socket_tcp_connect(int* fd, int port, uint32_t address, int blocking);

/* Closes `*fd` unless it is -1, and sets it to -1. A null `fd` is ignored. */
VEXO_API void socket_tcp_close(int* fd);

/* Makes a blocking socket, with the close-on-exec flag and SO_REUSEADDR, that listens on `port` of
 * the local address (0: all addresses; a port of 0: one that the system chooses). `backlog` is the
 * number of connections that may wait to be accepted, as in listen(2).
 * Returns the listening descriptor, or -1. Does not block. */
VEXO_API int socket_tcp_listen(int port, uint32_t address, int backlog);

/* Accepts one connection; on a blocking listener it waits for it without limit. The new descriptor
 * is blocking, has the close-on-exec flag, and none of the options above.
 * Returns the descriptor, or -1 (EINTR when a signal handler ran during the wait). */
VEXO_API int socket_tcp_accept(int listening_fd);

/* Waits until `fd` can be read without blocking; an orderly close and a pending connection of a
 * listener count. `limit` (null: no limit; microseconds may be a million and more) takes what
 * remains of the time. A signal handler does not end the wait. `unused` has no meaning.
 * Returns 1 when readable, 0 when the time is over, -1 on an error: EBADF for a descriptor that is
 * not open, EINVAL for a negative limit. */
VEXO_API int socket_tcp_select(int fd, struct timeval* limit, int unused);

/* Discards received bytes, at most 1400 a call, without waiting: call it until it returns -1.
 * Returns the number of bytes discarded (1 to 1400), or -1 when none was there, the peer has
 * closed the connection, or on an error. */
VEXO_API int socket_tcp_flush(int fd);

/* Sends up to `length` bytes in one send call, never raising SIGPIPE. On a blocking socket it waits
 * without limit for room.
 * Returns the number of bytes accepted, which may be less than `length`, or -1: EAGAIN on a
 * non-blocking socket without room, EPIPE or ECONNRESET when the connection is gone, EINTR after a
 * signal handler. */
VEXO_API long socket_tcp_send(int fd, const uint8_t* data, unsigned int length);

/* Receives up to `capacity` bytes. On a blocking socket it waits without limit for the first of
 * them; a signal handler does not end the wait.
 * Returns the number of bytes, 0 when the peer has closed the connection in order, or -1: EAGAIN on
 * a non-blocking socket when nothing is there, ECONNRESET when the connection is gone. */
VEXO_API long socket_tcp_recv(int fd, uint8_t* buffer, unsigned int capacity);

/* The dotted text of an address, e.g. "127.0.0.1". It stands in the system's static buffer until
 * the next call of this function or of inet_ntoa(3) in the same thread. Never null. */
VEXO_API const char* socket_tcp_inet_ntoa(uint32_t address);

VEXO_C_END

#endif
