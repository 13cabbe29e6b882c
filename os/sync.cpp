#include "os/sync.h"

namespace vexo {

namespace {

void unlock(void* mutex) {
    pthread_mutex_unlock(static_cast<pthread_mutex_t*>(mutex));
}

}  // namespace

bool make_mutex(pthread_mutex_t& mutex) {
    pthread_mutexattr_t attributes;
    if (pthread_mutexattr_init(&attributes) != 0) {
        return false;
    }
    const bool made = pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT) == 0 &&
                      pthread_mutex_init(&mutex, &attributes) == 0;
    pthread_mutexattr_destroy(&attributes);
    return made;
}

bool make_monotonic_condition(pthread_cond_t& condition) {
    pthread_condattr_t attributes;
    if (pthread_condattr_init(&attributes) != 0) {
        return false;
    }
    const bool made = pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC) == 0 &&
                      pthread_cond_init(&condition, &attributes) == 0;
    pthread_condattr_destroy(&attributes);
    return made;
}

int wait(pthread_cond_t& condition, pthread_mutex_t& mutex, const Deadline& deadline) {
    int result = 0;
    pthread_cleanup_push(unlock, &mutex);
    result = deadline ? pthread_cond_timedwait(&condition, &mutex, &*deadline)
                      : pthread_cond_wait(&condition, &mutex);
    pthread_cleanup_pop(0);
    return result;
}

}  // namespace vexo
