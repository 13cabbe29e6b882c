// Holds a POSIX mutex for a scope.
#ifndef BASE_MUTEX_LOCK_H
#define BASE_MUTEX_LOCK_H

#include <pthread.h>

#include "base/cancellation.h"

namespace vexo {

// A thread is not cancelled while it holds the mutex, and so never leaves it locked.
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

    const CancellationHold& hold() const { return hold_; }

private:
    CancellationHold hold_;  // first: from before the lock to after the unlock
    pthread_mutex_t& mutex_;
};

}  // namespace vexo

#endif
