// One served handle, as the receive thread sees it.
#ifndef CLIENT_RECEIVED_STREAM_H
#define CLIENT_RECEIVED_STREAM_H

#include <poll.h>

#include "client/handle_state.h"

namespace vexo {

// Told of each package that is shown, if there is one; for soak/, which follows them. Set before
// the receive thread starts.
extern void (*package_observer)(uint32_t handle, std::span<const uint8_t> package);

class ReceivedStream {
public:
    // How long the thread waits at most before it looks at the handles again.
    static constexpr int kWaitMilliseconds = 20;

    explicit ReceivedStream(uint32_t handle = 0) : handle_(handle) {}

    uint32_t handle() const { return handle_; }

    // One pass: takes in what `polled` says has come for a handle that streams, and says in
    // `polled` what to wait for next.
    void serve(HandleState& handle, pollfd& polled);

private:
    void serve_tcp(HandleState& handle, pollfd& polled);
    void receive_bytes(int socket, wire::PackageStream& packages);
    void serve_raw(HandleState& handle, pollfd& polled);
    void receive_frames(HandleState& handle);
    void take_frame(HandleState& handle, uint8_t code, std::span<const uint8_t> payload);
    void show(HandleState& handle, std::span<const uint8_t> package, size_t claimed);
    // After a failure the link is left alone for a while: a closed one is always ready, and must
    // cost no more than a silent one.
    void rest();
    bool resting() const;
    // Whether to log that the link is lost: once, until something comes again.
    bool newly_lost();
    // Whether to log one more bad frame: not many in a second.
    bool may_log();

    uint32_t handle_;
    bool cleared_ = false;     // the store is zero since the stream stopped
    bool lost_ = false;        // and logged
    int64_t line_second_ = 0;  // of the monotonic clock, in which
    int lines_ = 0;            // so many bad frames were to be logged
    int64_t rest_until_ = 0;   // milliseconds of the monotonic clock
};

}  // namespace vexo

#endif
