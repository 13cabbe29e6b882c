// Mutexes and condition variables as all families of the layer use them.
#ifndef OS_SYNC_H
#define OS_SYNC_H

#include <pthread.h>

#include "base/deadline.h"
#include "base/mutex_lock.h"

namespace vexo {

// Makes a non-recursive mutex whose holder inherits the priority of the threads that it keeps
// waiting. Returns whether it could.
bool make_mutex(pthread_mutex_t& mutex);

// Makes a condition variable whose deadlines are on the monotonic clock. Returns whether it could.
bool make_monotonic_condition(pthread_cond_t& condition);

// One wait, with the mutex locked. Returns 0 when woken, otherwise the error number, ETIMEDOUT
// after the deadline. A thread that is cancelled while it waits unlocks the mutex.
int wait(pthread_cond_t& condition, pthread_mutex_t& mutex, const Deadline& deadline);

}  // namespace vexo

#endif
