// A packet socket for the raw frames of one controller.
#ifndef SESSION_RAW_PORT_H
#define SESSION_RAW_PORT_H

#include <span>

#include "session/link.h"
#include "wire/frame.h"
#include "wire/package.h"

namespace vexo::session {

// The most that a frame takes on an Ethernet.
inline constexpr size_t kMostFrame = wire::kEthernetHeader + wire::kMaxFrameMessage;

class RawPort final : public Object {
public:
    // Takes no frame before listen_to(). descriptor() is -1 when the system refuses, with errno.
    explicit RawPort(const char* interface);

    int descriptor() const { return descriptor_; }
    const wire::MacBytes& own_address() const { return own_; }

    // From now on takes the controller's frames: of any code, or of one. Others are dropped by the
    // kernel.
    void listen_to(const wire::MacBytes& controller);
    void listen_to(const wire::MacBytes& controller, wire::FrameCode code);

    // A message in a frame of its own. `frame` begins with kEthernetHeader bytes of room.
    Sent send(wire::FrameCode code, std::span<uint8_t> frame);

    // Frames that found no room in the socket's queue since the last call.
    uint32_t drops();
    // No frame is sent from now on; whoever waits on it is woken. Any thread.
    void abort();

private:
    ~RawPort() override;
    bool bind_to(const char* interface);

    int descriptor_;
    wire::MacBytes own_{};
    wire::MacBytes controller_{};
    Mutex sending_;
    bool broken_ = false;  // guarded by sending_, like the next
    uint16_t sequence_ = 0;
};

}  // namespace vexo::session

#endif
