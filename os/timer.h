/* 3 periodic or one-shot timers, rows 0 to 2. Periods are MICROSECONDS on the monotonic clock.
   Rows: see os.h.

   The arguments of the request choose one of three kinds:

   kind        chosen by                  runs                                       starts with
   signal      no callback                `handler`, on any thread of the process    start
   own thread  callback, stack_size > 0   `callback`, on the timer's own thread      start
   simulated   callback, stack_size 0     `callback`, on one thread for all          request

   Signal. The timer raises SIGALRM in the process, and `handler` is its handler: it may do only
   what is allowed in a signal handler, and the handler of the last request serves all timers of
   this kind. Some thread must not block SIGALRM. Don't mix this kind with own-thread timers, whose
   threads take any SIGALRM that every other thread blocks.

   Own thread. The thread has SCHED_FIFO scheduling at the given priority, and SIGALRM is blocked in
   it, whatever the mask of its creator. Expiries during a slow callback are made up for by at most
   one call.

   Simulated. One SCHED_FIFO thread of priority 51 and 16384 bytes of stack ticks every 0.5 ms and
   calls the callbacks one after another, in slot order; a slow callback delays the others. The
   period is cut to a multiple of 500 us, at least one; periods above 4,294,967 us wrap around (in
   32-bit nanoseconds). Ticks missed during slow callbacks are skipped, never caught up with, and
   the ticks keep to their grid. start and stop do nothing; every such timer is periodic. The thread
   is started with the first such timer and never ends.

   Both kinds of thread need the right to real-time scheduling; where the process has none, the
   request fails. */
#ifndef OS_TIMER_H
#define OS_TIMER_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

/* Takes the lowest free row and makes a timer of the kind that the arguments choose.
   period_us   microseconds from the start to the first call, and between calls
   handler     signal handler; used without a callback only
   callback    gets the row (own thread) or the slot among the simulated timers, 0 to 2 (simulated),
               and `arg`; null chooses the signal kind
   stack_size  own thread: bytes for the callback, on top of 16384; 0 chooses the simulated kind
   priority    own thread: 1 (lowest) to 99 (highest)
   one_shot    0 = periodic; anything else = one call per start (not for simulated timers)
   Returns the row, or -1 when all rows are in use, neither handler nor callback is given, or the
   system refuses the thread or the timer. Waits until the timer's thread runs. */
VEXO_API int32_t pthread_request_timer(uint32_t period_us, void (*handler)(int signal_number),
                                       void (*callback)(uint32_t index, void* arg), void* arg,
                                       uint32_t stack_size, int32_t priority, uint32_t one_shot);

/* Starts the timer, or starts it anew: the first call comes one period from now. A period of 0
   stops it. Returns 0 (simulated: without effect), or -1 for a row outside the table or not in use,
   or when the system refuses. */
VEXO_API int32_t pthread_start_timer(int32_t index);

/* Stops the timer; it can be started again. An expiry that is under way may still call. Returns 0
   (simulated: without effect), or -1 for a row outside the table or not in use. */
VEXO_API int32_t pthread_stop_timer(int32_t index);

/* Stops the timer and gives its row back. Waits for a callback that is running, and for the end of
   an own thread, which ends within 0.5 s of it; no callback begins after the return (a SIGALRM
   under way may still run `handler`). A simulated timer's callback is waited for half a second at
   most, since the caller may hold a mutex that it takes: it may then still run. A callback may free
   its own timer: then nothing is waited for, and that call is the last. Returns 0, or -1 for a row
   outside the table or not in use. */
VEXO_API int32_t pthread_free_timer(int32_t index);

VEXO_C_END

#endif
