/* 20 unbounded message queues, rows 0 to 19: pointers, first in first out. The queues never own
   what the messages point to. Rows: see os.h. Codes below -1 are those of queue.h. */
#ifndef OS_MESSAGE_QUEUE_H
#define OS_MESSAGE_QUEUE_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Takes the lowest free row and makes its queue. Returns the row, or -3 when all rows are in use or
   there is no memory. */
VEXO_API int32_t pthread_request_queue(void);

/* Closes the queue, waits until the tasks that pend on it have left (they get -4), and gives the
   row back. Messages still queued are dropped, what they point to is left alone. Returns 0 (also
   for a free row), or -1 for a row outside the table. */
VEXO_API int32_t pthread_free_queue(int32_t index);

/* Appends a message and wakes the tasks that pend. Never waits. Returns
   0   success; also for a free row, where the message is dropped
   -1  a row outside the table
   -2  the queue could not be locked
   -3  no memory
   -4  the queue is being freed
   -7  65534 messages are queued already */
VEXO_API int32_t pthread_post_queue(int32_t index, void* message);

/* Takes the oldest message into `*message` (not null).
   timeout  0 waits for ever. Anything else is meant as MICROSECONDS, but does NOT wait: an empty
            queue is answered with -8 at once (see queue_get_timewait)
   Returns
   0   success; also for a free row, where `*message` is left as it was
   -1  a row outside the table; `*message` is left as it was
   -2  the queue could not be locked
   -4  the queue was freed meanwhile
   -5  woken, but another task has taken the message (waits once, see queue_get_wait)
   -8  empty, with a time-out
   Null is stored into `*message` with every code of -2 and below. */
VEXO_API int32_t pthread_pend_wait_queue(int32_t index, void** message, uint32_t timeout);

VEXO_C_END

#endif
