#include "base/thread.h"

namespace vexo {

bool start_thread(pthread_t& thread, void* (*entry)(void*), void* arg) {
    return pthread_create(&thread, nullptr, entry, arg) == 0;
}

bool start_thread(pthread_t& thread, const ThreadPlan& plan, void* (*entry)(void*), void* arg) {
    pthread_attr_t attributes;
    if (pthread_attr_init(&attributes) != 0) {
        return false;
    }
    sched_param parameter{};
    parameter.sched_priority = plan.priority;
    const bool started = pthread_attr_setstacksize(&attributes, plan.stack_size) == 0 &&
                         pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED) == 0 &&
                         pthread_attr_setschedpolicy(&attributes, plan.policy) == 0 &&
                         pthread_attr_setschedparam(&attributes, &parameter) == 0 &&
                         pthread_create(&thread, &attributes, entry, arg) == 0;
    pthread_attr_destroy(&attributes);
    return started;
}

}  // namespace vexo
