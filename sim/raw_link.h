// A controller's end of the raw path: a packet socket on a network interface.
#ifndef SIM_RAW_LINK_H
#define SIM_RAW_LINK_H

#include <string>

#include "sim/controller.h"
#include "sim/descriptor.h"
#include "sim/frame.h"
#include "sim/outbox.h"

namespace sim {

class RawLink {
public:
    // `mac` stands in for the interface's own address when given. Throws std::system_error.
    RawLink(const std::string& interface, const std::optional<MacAddress>& mac);

    int descriptor() const { return socket_.get(); }
    const MacAddress& mac() const { return mac_; }
    const Outbox& outbox() const { return outbox_; }

    // Reads the frames that have arrived and has the controller answer what its client sent; a deaf
    // one does nothing with them.
    void receive(Controller& controller, bool deaf);
    // Sends a message in a frame as its fault asks. False: it is lost, or too long for a frame.
    bool deliver(FrameCode code, const MacAddress& client, const Outgoing& out);
    // Sends what has become due.
    void flush();
    // Forgets what was to be sent, and begins with the first sequence number.
    void restart();

private:
    void take(const Frame& frame, Controller& controller);
    bool transmit(BytesView frame);

    Descriptor socket_;
    MacAddress mac_{};
    uint16_t sequence_ = 0;
    Outbox outbox_;
};

}  // namespace sim

#endif
