/* The operating-system layer: a small real-time programming interface over POSIX threads. It stands
   alone; the rest of the library does not use it.

   memory.h         the allocator
   task.h           start of the layer, tasks, priorities, processor affinity
   mutex.h          40 mutexes with priority inheritance
   queue.h          queues of pointers: bounded or not, in order of arrival or sorted
   message_queue.h  20 unbounded queues named by a row
   semaphore.h      30 counting semaphores   (time-outs in MILLISECONDS)
   event.h          8 groups of 32 flags     (time-outs in MICROSECONDS)
   timer.h          3 periodic or one-shot timers

   Rows. Mutexes, message queues, semaphores, event groups and timers are rows of fixed tables.
   pthread_request_* hands out the lowest free row, pthread_free_* gives it back, and all calls
   between name the object by that row. The tables have no lock: request and free from one thread,
   usually at start-up and shut-down, and free a row only when no other thread uses it any more
   (tasks that pend on a message queue are released by its end).
   Everything between is open to all threads. Two threads that request at the same moment may get
   the same row.

   Results. 0 is success and -1 failure, if a function says nothing else; nothing is printed or
   logged. A row outside the table is always -1. A row inside the table that is not in use is
   answered differently by each family:

   free, lock, unlock of a mutex                 0, nothing done
   trylock of a mutex                           -1
   free, post, pend of a message queue           0, nothing done
   every call on a semaphore, event or timer    -1

   A full table is -1, but -3 for message queues. Time-outs of semaphores and events are the
   positive error number ETIMEDOUT of <errno.h>, those of queues are negative codes of their own.

   Signals. No call of this layer may be made from a signal handler. */
#ifndef OS_OS_H
#define OS_OS_H

#include "os/event.h"
#include "os/memory.h"
#include "os/message_queue.h"
#include "os/mutex.h"
#include "os/queue.h"
#include "os/semaphore.h"
#include "os/task.h"
#include "os/timer.h"

#endif
