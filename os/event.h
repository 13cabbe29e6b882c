/* 8 event groups of 32 flags, rows 0 to 7. Rows: see os.h. */
#ifndef OS_EVENT_H
#define OS_EVENT_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Takes the lowest free row, with all flags clear. Returns the row, or -1 when all are in use. */
VEXO_API int32_t pthread_request_event(void);

/* Waits until at least one flag of `mask` is set. The flags stay set: clear them with
   pthread_event_clr. A mask of 0 is never met.
   out         gets the flags of `mask` that are set, 0 after a time-out; not null
   timeout_us  MICROSECONDS on the monotonic clock, 0 = for ever (semaphore waits count
               milliseconds)
   Returns 0, ETIMEDOUT (<errno.h>, positive) when the time is over, -1 for a row outside the table
   or not in use, where `*out` is left as it was. */
VEXO_API int32_t pthread_event_wait(int32_t index, uint32_t mask, uint32_t* out,
                                    uint32_t timeout_us);

/* Sets the flags `bits` and wakes ONE waiting thread, whether or not it waits for these flags: let
   only one thread wait on a group, or set again for each. Never waits. Returns 0, or -1 for a row
   outside the table or not in use. */
VEXO_API int32_t pthread_event_set(int32_t index, uint32_t bits);

/* Clears the flags `bits`. Returns 0, or -1 for a row outside the table or not in use. */
VEXO_API int32_t pthread_event_clr(int32_t index, uint32_t bits);

/* Gives a row back. No thread may wait on it: the call would hang until that thread has left.
   Returns 0, or -1 for a row outside the table or not in use. */
VEXO_API int32_t pthread_free_event(int32_t index);

VEXO_C_END

#endif
