// Hold a POSIX mutex for a scope.
#ifndef BASE_MUTEX_LOCK_H
#define BASE_MUTEX_LOCK_H

#include <pthread.h>

#include "base/cancellation.h"

namespace vexo {

// For scopes without a cancellation point: no I/O, no wait but that of os/sync.h, no function of an
// application's.
class BriefLock {
public:
    explicit BriefLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~BriefLock() { pthread_mutex_unlock(&mutex_); }
    BriefLock(const BriefLock&) = delete;
    BriefLock& operator=(const BriefLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

// For all others: a thread is not cancelled while it holds the mutex, and so never leaves it
// locked.
class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : lock_(mutex) {}

    const CancellationHold& hold() const { return hold_; }

private:
    CancellationHold hold_;  // first: from before the lock to after the unlock
    BriefLock lock_;
};

}  // namespace vexo

#endif
