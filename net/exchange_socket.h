/*
 * The TCP client sockets of the exchange with a controller: blocking IPv4 connections whose waits
 * are bounded by the caller. A connection is its descriptor; nothing else is kept.
 *
 * Failures are printed on standard output and logged under handle 0 and the function's name, with
 * the system's text for errno, e.g. "Connection failed - Connection refused (errno: 111)"; errno is
 * left as the failing system call set it. Any thread may call these functions. Descriptors may have
 * any number; one that is not open is answered with "Select error - ..." and EBADF.
 */
#ifndef NET_EXCHANGE_SOCKET_H
#define NET_EXCHANGE_SOCKET_H

#include "vexo_export.h"

VEXO_C_BEGIN

/* Results of socket_recv() below 0. */
#define VEXO_SOCKET_ERROR (-1)
#define VEXO_SOCKET_TIMEOUT (-2)

/*
 * The text for an error number, "<system's text> (errno: <number>)"; -1 stands for the current
 * errno. Returns one buffer of the process (512 bytes), which the next call overwrites, and every
 * failure that the library describes: use the text at once, and not from several threads.
 */
VEXO_API const char* socket_get_error_desc(int error_number);

/*
 * Connects to a dotted IPv4 address (null counts as empty) and a TCP port (host order). Blocks
 * until the connection stands, is refused, or two repeated SYNs (TCP_SYNCNT 2, about 7 seconds)
 * were not answered. Returns the descriptor (3 or more, close-on-exec), or -1; then no descriptor
 * is left open, and one of these was printed and logged:
 *   "Socket creation failed for <address>:<port> - <error>"
 *   "Invalid address <address> - <error>"    (a malformed address does not set errno)
 *   "Connection failed - <error>"
 */
VEXO_API int socket_connect(const char* address, int port);

/*
 * Sends with one send() call once the socket takes data, for which it waits at most 5 ms.
 *   data, length  the bytes to send, and how many; what exceeds the room that the socket then has
 *                 (at least a third of its buffer) waits in send() for the peer
 * Returns the number of bytes the system took, which may be fewer than `length` (the rest is not
 * sent), or -1 with "Select error - <error>", "Timeout occurred! Socket not ready to send after
 * 5 milliseconds." or "Send failed - <error>". A connection that was reset gives -1 and EPIPE or
 * ECONNRESET; it raises no SIGPIPE.
 */
VEXO_API int socket_send(int fd, const void* data, unsigned int length);

/*
 * Receives with one recv() call once there is something to receive.
 *   buffer, capacity  where to, and at most how many bytes
 *   timeout           microseconds to wait; 0 polls; negative waits without limit
 * Returns the number of bytes received, 0 when the peer has closed the connection, -1 with
 * "Select error - <error>" or "Receive failed - <error>", or -2 (nothing printed or logged) when
 * the time was over.
 */
VEXO_API int socket_recv(int fd, void* buffer, unsigned int capacity, int timeout);

/* Closes the descriptor. Returns what close() returns: 0, or -1. Prints and logs nothing. */
VEXO_API int socket_close(int fd);

/* Does nothing: there is no network start-up on this platform that would need an end. */
VEXO_API void socket_cleanup(void);

VEXO_C_END

#endif
