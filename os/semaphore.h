/* 30 counting semaphores, rows 0 to 29. Rows: see os.h. */
#ifndef OS_SEMAPHORE_H
#define OS_SEMAPHORE_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Takes the lowest free row and sets its count. Returns the row, or -1 when all are in use. */
VEXO_API int32_t pthread_request_sem(uint32_t initial_count);

/* Waits until the count is above 0 and takes one, or all.
   timeout_ms  MILLISECONDS on the monotonic clock, 0 = for ever (event waits count microseconds)
   take_all    0 takes 1 from the count; anything else sets the count to 0, so that one wait uses up
               every pending signal
   Returns 0 when taken, ETIMEDOUT (<errno.h>, positive) when the time is over and nothing is taken,
   -1 for a row outside the table or not in use. */
VEXO_API int32_t pthread_sem_wait(int32_t index, uint32_t timeout_ms, uint8_t take_all);

/* Adds 1 to the count and wakes one waiting thread. Never waits. Returns 0, or -1 for a row outside
   the table or not in use. */
VEXO_API int32_t pthread_sem_signal(int32_t index);

/* Gives a row back. No thread may wait on it: the call would hang until that thread has left.
   Returns 0, or -1 for a row outside the table or not in use. */
VEXO_API int32_t pthread_free_sem(int32_t index);

VEXO_C_END

#endif
