// A TCP connection to a port of the controller, for several threads.
#ifndef SESSION_LINK_H
#define SESSION_LINK_H

#include <netinet/in.h>

#include <span>

#include "session/monitor.h"
#include "session/object.h"

namespace vexo::session {

enum class Sent { whole, no_room, broken };

// Its descriptor lives as long as it does, so that no thread ever uses somebody else's.
class Link final : public Object {
public:
    // Begins to connect and does not wait. descriptor() is -1 when the system refuses, with errno.
    Link(const in_addr& address, uint16_t port);

    int descriptor() const { return descriptor_; }
    uint16_t port() const { return port_; }
    // 0 once it is connected, else the errno that the attempt ended with.
    int connect_result() const;
    // Has the kernel stamp what comes.
    void stamp_arrivals();

    // All of a message or nothing. A message that went in part breaks the link.
    Sent send(std::span<const uint8_t> message);

    // Throws away what was not delivered yet; whoever waits on it is woken. Any thread.
    void abort();
    // Ends it; what was sent is still delivered. Any thread.
    void finish();

private:
    ~Link() override;

    const uint16_t port_;
    int descriptor_;
    int refusal_ = 0;  // errno of a connect() that failed at once
    Mutex sending_;
    bool broken_ = false;  // guarded by sending_
};

}  // namespace vexo::session

#endif
