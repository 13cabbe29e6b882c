// What stands between two cuts: the connections to one controller that calls of the application
// use. After a cut a new one takes its place; whoever still holds the old one can send nothing
// more.
#ifndef SESSION_CONNECTION_H
#define SESSION_CONNECTION_H

#include "session/link.h"
#include "session/raw_port.h"
#include "session/session.h"

namespace vexo::session {

class Connection final : public Object {
public:
    Connection(Ref<Link> io_link, Ref<Link> control_link)
        : io(std::move(io_link)), control(std::move(control_link)) {}

    const Ref<Link> io;
    const Ref<Link> control;
    Ref<RawPort> raw;          // sends frames and takes acknowledgements; none over TCP
    uint32_t version = 0;      // of the protocol: 1, 2, or more on the raw path
    bool acknowledges = true;  // set-points
    uint32_t number = 0;       // the session's count of connections

    // Gives the connection up, because of `reason`. The I/O thread notices. The first reason
    // counts.
    void give_up(const VexoSessionError& reason);
    // The reason, with VEXO_SESSION_OK when nobody has given it up.
    VexoSessionError reason();

    // Nothing more is sent or received. With `finish` what was sent before is still delivered.
    void end(bool finish);

private:
    Mutex mutex_;
    VexoSessionError reason_{};
};

}  // namespace vexo::session

#endif
