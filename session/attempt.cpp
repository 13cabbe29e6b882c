#include "session/attempt.h"

#include <sys/epoll.h>

#include "session/error.h"
#include "wire/protocol.h"

namespace vexo::session {

namespace {

enum { kIo, kControl, kReceive };

VexoSessionError cannot_connect(uint16_t port, int cause) {
    char what[64];
    std::snprintf(what, sizeof what, "port %u cannot be connected to", port);
    return system_failure(VEXO_SESSION_UNREACHABLE, what, cause);
}

}  // namespace

void Attempt::begin(const in_addr& address, bool with_receive) {
    address_ = address;
    with_receive_ = with_receive;
    if (open(ports_[kIo], wire::kIoPort)) {
        links_.io = ports_[kIo].link;
    }
}

bool Attempt::open(Port& port, uint16_t number) {
    port.attempt = this;
    port.link = make<Link>(address_, number);
    port.pending = true;
    const bool opened =
        port.link->descriptor() >= 0 && io_.watch(port.link->descriptor(), EPOLLOUT, port);
    if (!opened) {
        fail(system_failure(VEXO_SESSION_SYSTEM, "no socket can be opened", errno));
    }
    return opened;
}

void Attempt::settled(Port& port) {
    if (!port.pending) {
        return;
    }
    const int result = port.link->connect_result();
    if (result != 0) {
        fail(cannot_connect(port.link->port(), result));
        return;
    }
    port.pending = false;
    io_.forget(port.link->descriptor());
    if (&port == &ports_[kIo]) {
        static_cast<void>(open(ports_[kControl], wire::kControlPort) &&
                          (!with_receive_ || open(ports_[kReceive], wire::kReceivePort)));
    } else if (!ports_[kControl].pending && !ports_[kReceive].pending) {
        Links links{ports_[kIo].link, ports_[kControl].link, ports_[kReceive].link};
        for (Port& each : ports_) {
            each.link = {};
        }
        links_ = {};
        owner_.connected(std::move(links));
    }
}

uint16_t Attempt::waiting_for() const {
    for (const Port& port : ports_) {
        if (port.pending) {
            return port.link->port();
        }
    }
    return 0;
}

void Attempt::fail(const VexoSessionError& error) {
    abandon();
    owner_.not_connected(error);
}

void Attempt::abandon() {
    for (Port& port : ports_) {
        close(port);
    }
    links_ = {};
}

void Attempt::close(Port& port) {
    if (port.link) {
        if (port.pending && port.link->descriptor() >= 0) {
            io_.forget(port.link->descriptor());
        }
        port.link->abort();
        port.link = {};
        port.pending = false;
    }
}

}  // namespace vexo::session
