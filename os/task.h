/* Tasks: detached threads that set their own name, processor and priority. */
#ifndef OS_TASK_H
#define OS_TASK_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* The smallest stack of a task, in bytes. Smaller requests get this much. */
#define PTHREAD_TASK_STACK_MIN 16384

/* Policy selector of pthread_set_param: first-in-first-out real-time scheduling (SCHED_FIFO). */
#define PTHREAD_POLICY_FIFO 1u

/* Marks every row of every table of the layer free. Call it once, before anything else; a process
   that has just started has all rows free already. Objects in use are forgotten, not released, so
   calling it later leaks them. */
VEXO_API void pthread_drv_init(void);

/* Starts a thread that runs `entry(arg)` with normal time-sharing scheduling and priority 0,
   whatever the scheduling of its creator. The thread is detached: nobody can join it, it ends when
   `entry` returns, and what `entry` returns is dropped.
   stack_size  bytes, at least PTHREAD_TASK_STACK_MIN; thread-local storage comes out of it too
   Returns 0, or -1 when the thread can't be created. Any thread may call it. */
VEXO_API int32_t pthread_create_task(void* (*entry)(void* arg), void* arg, uint32_t stack_size);

/* Binds the calling thread to a processor and names it.
   cpu   0 to 127; negative leaves the affinity alone
   name  at most 15 characters, longer names are not set; empty leaves the name alone; not null
   Returns 0. A processor that the system refuses (one that does not exist, say) goes unnoticed:
   the affinity stays as it was. */
VEXO_API int32_t pthread_set_taskaffinity(int8_t cpu, const char* name);

/* Sets scheduling policy and priority of the calling thread.
   priority         1 (lowest) to 99 (highest) with PTHREAD_POLICY_FIFO, 0 with any other selector
   policy_selector  PTHREAD_POLICY_FIFO, or anything else for normal time-sharing
   Where the process lacks the privilege, its soft real-time-priority limit (RLIMIT_RTPRIO) is
   raised to `priority`, if the hard limit allows. Returns 0, or -1 when the system refuses. */
VEXO_API int32_t pthread_set_param(int32_t priority, uint32_t policy_selector);

VEXO_C_END

#endif
