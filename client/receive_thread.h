// How others deal with the receive thread.
#ifndef CLIENT_RECEIVE_THREAD_H
#define CLIENT_RECEIVE_THREAD_H

#include "base/mutex_lock.h"

namespace vexo {

// Has the thread, if there is one, look at the streaming flags now.
void wake_receive_thread();

// How teardown keeps the thread off what it takes away: while an object of this lives, the receive
// thread is in no pass. Waits for the one it is in.
class ReceivePause {
public:
    ReceivePause();

private:
    MutexLock lock_;
};

}  // namespace vexo

#endif
