// Waits without a time limit, which the application may want to cancel.
#ifndef CLIENT_CANCELLABLE_WAIT_H
#define CLIENT_CANCELLABLE_WAIT_H

#include <pthread.h>

#include "client/registry.h"

namespace vexo {

// What a thread gives up when it is cancelled in a wait. The library is compiled without
// exceptions, so that the destructors of its objects do not run then.
struct HeldWhileWaiting {
    const Registration& handle;
    const CancellationHold& outermost;  // of the call: knows whether the application allows it
    pthread_mutex_t* mutex = nullptr;

    static void give_up(void* held) {
        const auto& self = *static_cast<const HeldWhileWaiting*>(held);
        self.handle.leave();
        if (self.mutex != nullptr) {
            pthread_mutex_unlock(self.mutex);
        }
    }
};

// Returns what `wait` does.
template <typename Wait>
int wait_cancellable(HeldWhileWaiting held, Wait wait) {
    int result = 0;
    pthread_cleanup_push(HeldWhileWaiting::give_up, &held);
    pthread_setcancelstate(held.outermost.before(), nullptr);
    result = wait();
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
    pthread_cleanup_pop(0);
    return result;
}

}  // namespace vexo

#endif
