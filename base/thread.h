// The one place that starts threads.
#ifndef BASE_THREAD_H
#define BASE_THREAD_H

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

namespace vexo {

struct ThreadPlan {
    size_t stack_size;  // bytes
    int policy;
    int priority;
};

// Starts a thread, with the stack and the scheduling that threads of the process have by default.
// Returns whether it could; then `thread` must be detached or joined.
bool start_thread(pthread_t& thread, void* (*entry)(void*), void* arg);

// The same, with exactly this scheduling, whatever that of the creator.
bool start_thread(pthread_t& thread, const ThreadPlan& plan, void* (*entry)(void*), void* arg);

inline uint32_t kernel_thread_id() {
    return static_cast<uint32_t>(gettid());
}

}  // namespace vexo

#endif
