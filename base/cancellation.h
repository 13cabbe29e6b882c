// Keeps the cancellation of the calling thread off.
#ifndef BASE_CANCELLATION_H
#define BASE_CANCELLATION_H

#include <pthread.h>

namespace vexo {

// For a scope: a request to cancel the thread waits until it ends, and then for the thread's next
// cancellation point. Scopes may nest. No system call.
class CancellationHold {
public:
    CancellationHold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    ~CancellationHold() { pthread_setcancelstate(before_, nullptr); }
    CancellationHold(const CancellationHold&) = delete;
    CancellationHold& operator=(const CancellationHold&) = delete;

    // The thread's state outside, for a wait inside that must stay cancellable.
    int before() const { return before_; }

private:
    int before_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace vexo

#endif
