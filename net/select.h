/* Waiting for one descriptor (reading and writing) or for many (reading).
 *
 * Both functions answer as select(2) does, for descriptors of any number, and go on waiting for the
 * rest of the time when a signal handler interrupts them. They need no set-up, keep no state, print
 * and log nothing, and may be called from any thread. A timeout is in microseconds, 0 (a look
 * without waiting) to 999999: a longer one is refused. */
#ifndef NET_SELECT_H
#define NET_SELECT_H

#include <stdint.h>

#include "vexo_export.h"

/* The bits in which sys_generic_select reports events. */
#define SYS_GENERIC_SELECT_READABLE 1u
#define SYS_GENERIC_SELECT_WRITABLE 2u

VEXO_C_BEGIN

/* Waits until `fd` can be read or written without blocking, at most `timeout_us` microseconds.
 * An orderly close by the peer, or an error on the connection, counts as readable.
 *
 * `events` (may be null) is set to 0 first, and on a result above 0 to the sum of
 * SYS_GENERIC_SELECT_READABLE and SYS_GENERIC_SELECT_WRITABLE that holds.
 *
 * Returns the number of events (1 or 2); 0 when the time is over; -1 with errno
 *   EINVAL  `timeout_us` is 1000000 or more,
 *   EBADF   `fd` is not open. */
VEXO_API int sys_generic_select(int fd, unsigned int timeout_us, uint32_t* events);

/* Waits until at least one of the `count` descriptors at `fds` can be read without blocking, at
 * most `timeout_us` microseconds. With a `count` of 0 it sleeps that long.
 *
 * `ready` (may be null) holds `count` flags; on a result above 0 the flag of each descriptor that
 * is readable is set to 1. The others are left as they are: clear them before the call.
 *
 * Returns the number of readable descriptors, one that is listed twice counted once; 0 when the
 * time is over; -1 with errno
 *   EINVAL  `timeout_us` is 1000000 or more, or `fds` is null with a `count` above 0,
 *   EBADF   a descriptor is not open,
 *   ENOMEM  there is no memory for a list of more than 64 (shorter ones need none). */
VEXO_API int sys_generic_select_multiread(const int* fds, unsigned int count,
                                          unsigned int timeout_us, uint32_t* ready);

VEXO_C_END

#endif
