// One TCP connection of a client: messages in, replies or packages out.
#ifndef SIM_CONNECTION_H
#define SIM_CONNECTION_H

#include "sim/controller.h"
#include "sim/descriptor.h"
#include "sim/outbox.h"

namespace sim {

class Connection {
public:
    Connection(Descriptor socket, Port port);

    Port port() const { return port_; }
    int descriptor() const { return socket_.get(); }
    bool ended() const { return socket_.get() < 0; }
    bool abandoned() const { return abandoned_; }
    const Outbox& outbox() const { return outbox_; }

    // Reads what has arrived and has the controller answer the messages that are whole; a silent
    // one only hears them.
    void receive(Controller& controller, bool silent);
    // Sends a message as its fault asks. False: it is lost, or the client does not read.
    bool deliver(const Outgoing& out);
    // Sends what has become due.
    void flush();
    void end(Break how);

private:
    void answer(BytesView message, Controller& controller);
    void take_messages(Controller& controller, bool silent);
    void queue(BytesView message, const Fault& fault);
    bool send_whole(BytesView message);
    ssize_t transmit(BytesView data);

    Descriptor socket_;
    Port port_;
    Bytes received_;
    Outbox outbox_;
    bool ending_ = false;  // the outbox holds the end of the connection
    bool abandoned_ = false;
};

}  // namespace sim

#endif
