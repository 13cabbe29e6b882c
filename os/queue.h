/* Queues of pointers between threads: unbounded or bounded, in order of arrival or sorted.

   A queue holds the pointers that it is given and never looks at what they point to; only the
   "complete" calls release the elements. Every call locks the queue's mutex (with priority
   inheritance) for its whole duration, apart from the waits. Any thread may call; the functions
   that a caller passes in (compare, filter, release) run on the calling thread under the queue's
   mutex and must not call the queue.

   A queue is open when made. queue_set_new_data(queue, 0) closes it: puts are refused and every
   thread that waits is released. What is queued can still be taken.

   A queue of any kind holds at most QUEUE_ELEMENTS_MAX elements.

   Results, if a function says nothing else:
   0   success
   -1  the queue, or the place for the element, is null
   -2  the queue's mutex could not be locked or unlocked
   -3  no memory
   -4  the queue is closed
   -5  no element to take: the filter accepts none, or a woken get finds the queue empty
   -7  full (put) or empty (get), from the calls that don't wait
   -8  the timed wait failed */
#ifndef OS_QUEUE_H
#define OS_QUEUE_H

#include <stdint.h>

#include "vexo_export.h"

VEXO_C_BEGIN

#define QUEUE_ELEMENTS_MAX 65534

typedef struct Queue Queue;

/* Orders two elements: negative when `a` comes before `b` in ascending order, 0 when they are
   equal, positive when `a` comes after `b`. */
typedef int32_t (*queue_compare)(void* a, void* b);

/* Releases an element. Where it may be null, null stands for os_free. */
typedef void (*queue_release)(void* element);

/* Returns 0 for the element to take. `node` is not the element but points to the element's place in
   the queue, the first field of which is the element: `*(void**)node`. Nothing else of it is for
   the filter, which must not change anything. */
typedef int32_t (*queue_filter)(void* node, void* arg);

/* Makes an open, unbounded queue, first in first out. Returns null when there is no memory. */
VEXO_API Queue* queue_create(void);

/* As queue_create, for at most `max` elements; 0 = unbounded. */
VEXO_API Queue* queue_create_limited(uint16_t max);

/* As queue_create, but kept sorted: the first element is the smallest by `compare`, or the largest
   when `ascending` is 0. Elements that compare equal come out newest first. Null also when
   `compare` is null. */
VEXO_API Queue* queue_create_sorted(int8_t ascending, queue_compare compare);

/* Both: sorted, and for at most `max` elements. */
VEXO_API Queue* queue_create_limited_sorted(uint16_t max, int8_t ascending, queue_compare compare);

/* Closes the queue, waits until the threads that wait in it have left, and frees it, not the
   elements. No thread may begin another call on the queue. Returns 0, or -1, -2. */
VEXO_API int8_t queue_destroy(Queue* queue);

/* As queue_destroy, and releases every element; `release` may be null. */
VEXO_API int8_t queue_destroy_complete(Queue* queue, queue_release release);

/* Inserts an element, at the end or at its place, and wakes all threads that wait in a get. Never
   waits. Returns 0, -1, -2, -3, -4, or -7 when full. */
VEXO_API int8_t queue_put(Queue* queue, void* element);

/* As queue_put, but waits for room as long as the queue is full and open. Room comes from gets, and
   only in a bounded queue: neither a flush nor a get from an unbounded one at its absolute limit
   wakes a put. Returns 0, -1, -2, -3, or -4, also when the queue is closed during the wait. */
VEXO_API int8_t queue_put_wait(Queue* queue, void* element);

/* Takes the first element into `*element`. Never waits. This and the other gets store null into
   `*element` when they fail. Returns 0, -1, -2, or -7 when empty. */
VEXO_API int8_t queue_get(Queue* queue, void** element);

/* As queue_get, but waits when the queue is empty. It waits once: a get that is woken and finds
   the element gone already, taken by another thread, returns -5 without waiting again. A queue
   that is empty and closed before the call makes it wait as well, until the queue is opened and put
   to, or closed once more. Returns 0, -1, -2, -4 when closed during the wait, or -5. */
VEXO_API int8_t queue_get_wait(Queue* queue, void** element);

/* As queue_get_wait with a time-out in MICROSECONDS, which does NOT wait in effect: the deadline is
   read off the monotonic clock but waited for on the wall clock, where it is long past, so that an
   empty queue is answered with -8 at once. Returns 0, -1 (also for a time-out of 0), -2, -4, -5 or
   -8. */
VEXO_API int8_t queue_get_timewait(Queue* queue, void** element, uint32_t timeout_us);

/* Takes the first element that `filter` accepts (all, when it is null); `arg` is handed to the
   filter. Never waits. Returns 0, -1, -2, -5 when the filter accepts none, or -7 when empty. */
VEXO_API int8_t queue_get_filtered(Queue* queue, void** element, queue_filter filter, void* arg);

/* Drops all elements without releasing them. Threads that wait for room are not woken. */
VEXO_API int8_t queue_flush(Queue* queue);

/* Drops and releases all elements; `release` may be null. Threads that wait for room are not
   woken. */
VEXO_API int8_t queue_flush_complete(Queue* queue, queue_release release);

/* queue_flush and queue_put in one step; `release` is ignored. When the put is refused (-3, -4),
   the queue is empty all the same. */
VEXO_API int8_t queue_flush_put(Queue* queue, queue_release release, void* element);

/* queue_flush_complete and queue_put in one step; `release` may be null. When the put is refused
   (-3, -4), the queue is empty all the same. */
VEXO_API int8_t queue_flush_complete_put(Queue* queue, queue_release release, void* element);

/* The number of elements; 65535 when the queue is null or can't be locked, 65534 when it can't be
   unlocked. */
VEXO_API uint16_t queue_elements(Queue* queue);

/* 1 when the queue is empty, otherwise 0; -1 or -2 on failure. */
VEXO_API int8_t queue_empty(Queue* queue);

/* Closes the queue (0) or opens it (1). Closing wakes all threads that wait: puts return -4, gets
   -4 when they find the queue empty. */
VEXO_API int8_t queue_set_new_data(Queue* queue, uint8_t flag);

/* The flag of queue_set_new_data, 1 in a new queue; 0 when the queue is null or can't be locked. */
VEXO_API uint8_t queue_get_new_data(Queue* queue);

VEXO_C_END

#endif
