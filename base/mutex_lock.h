// Holds a POSIX mutex for a scope.
#ifndef BASE_MUTEX_LOCK_H
#define BASE_MUTEX_LOCK_H

#include <pthread.h>

namespace vexo {

class MutexLock {
public:
    explicit MutexLock(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
    ~MutexLock() { pthread_mutex_unlock(&mutex_); }
    MutexLock(const MutexLock&) = delete;
    MutexLock& operator=(const MutexLock&) = delete;

private:
    pthread_mutex_t& mutex_;
};

}  // namespace vexo

#endif
