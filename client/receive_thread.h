// How teardown keeps the receive thread off what it takes away.
#ifndef CLIENT_RECEIVE_THREAD_H
#define CLIENT_RECEIVE_THREAD_H

namespace vexo {

// While an object of this lives, the receive thread is in no pass. Waits for the one it is in.
class ReceivePause {
public:
    ReceivePause();
    ~ReceivePause();
    ReceivePause(const ReceivePause&) = delete;
    ReceivePause& operator=(const ReceivePause&) = delete;
};

}  // namespace vexo

#endif
