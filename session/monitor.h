// A mutex with priority inheritance and a condition on the monotonic clock.
#ifndef SESSION_MONITOR_H
#define SESSION_MONITOR_H

#include <pthread.h>

#include "session/time.h"

namespace vexo::session {

// A mutex that hands its holder the priority of whoever waits for it.
class Mutex {
public:
    Mutex() {
        pthread_mutexattr_t attributes;
        pthread_mutexattr_init(&attributes);
        pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
        pthread_mutex_init(&mutex_, &attributes);
        pthread_mutexattr_destroy(&attributes);
    }
    ~Mutex() { pthread_mutex_destroy(&mutex_); }
    Mutex(const Mutex&) = delete;
    Mutex& operator=(const Mutex&) = delete;

    void lock() { pthread_mutex_lock(&mutex_); }
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }
    bool lock_until(Nanoseconds deadline) {
        if (try_lock()) {
            return true;
        }
        // Priority inheritance only knows deadlines of the other clock.
        const timespec until = to_timespec(deadline - monotonic_ns() + realtime_ns());
        return pthread_mutex_timedlock(&mutex_, &until) == 0;
    }
    void unlock() { pthread_mutex_unlock(&mutex_); }

    pthread_mutex_t& native() { return mutex_; }

private:
    pthread_mutex_t mutex_;
};

class Monitor : public Mutex {
public:
    Monitor() {
        pthread_condattr_t attributes;
        pthread_condattr_init(&attributes);
        pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
        pthread_cond_init(&changed_, &attributes);
        pthread_condattr_destroy(&attributes);
    }
    ~Monitor() { pthread_cond_destroy(&changed_); }

    void tell_all() { pthread_cond_broadcast(&changed_); }

    // Waits, the mutex being held, until the condition holds. Returns whether it does.
    template <typename Condition>
    bool wait_until(Nanoseconds deadline, Condition holds) {
        const timespec until = to_timespec(deadline);
        bool in_time = true;
        while (!holds() && in_time) {
            in_time = pthread_cond_timedwait(&changed_, &native(), &until) == 0;
        }
        return in_time || holds();
    }

private:
    pthread_cond_t changed_;
};

}  // namespace vexo::session

#endif
