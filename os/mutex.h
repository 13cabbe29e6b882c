/* 40 mutexes, rows 0 to 39. They are not recursive, and a thread that holds one while another waits
   for it runs at the higher priority of the two (priority inheritance). Rows: see os.h. */
#ifndef OS_MUTEX_H
#define OS_MUTEX_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Takes the lowest free row. Returns the row, or -1 when all are in use. */
VEXO_API int32_t pthread_request_mutex(void);

/* Gives a row back; nobody may hold its mutex. Returns 0 (also for a free row), or -1 for a row
   outside the table. */
VEXO_API int32_t pthread_free_mutex(int32_t index);

/* Locks; waits as long as another thread holds the mutex, for ever when the caller itself does.
   Returns 0, also for a free row, where nothing is locked; -1 for a row outside the table. */
VEXO_API int32_t pthread_lock_mutex(int32_t index);

/* Locks if nobody holds the mutex; never waits. Returns 0 when locked, EBUSY (<errno.h>, positive)
   when it is held, -1 for a row outside the table and, unlike lock and unlock, for a free row. */
VEXO_API int32_t pthread_trylock_mutex(int32_t index);

/* Unlocks; only for the thread that holds the mutex. Returns 0, also for a free row; -1 for a row
   outside the table. */
VEXO_API int32_t pthread_unlock_mutex(int32_t index);

VEXO_C_END

#endif
