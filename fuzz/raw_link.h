// An open raw instance whose messages the target hands in.
#ifndef FUZZ_RAW_LINK_H
#define FUZZ_RAW_LINK_H

#include <sys/socket.h>

#include "fuzz/input.h"
#include "net/raw_instance.h"
#include "wire/frame.h"

namespace fuzz {

class RawLink {
public:
    RawLink(uint32_t mode, uint8_t header_length) {
        int ends[2];
        check(socketpair(AF_UNIX, SOCK_DGRAM, 0, ends) == 0, "a socket pair can be made");
        number_ = vexo::raw_instances.request([&](vexo::RawInstance& record) {
            record.fd = ends[0];
            record.mode = mode;
            record.version = vexo::kRawVersion;
            record.header_length = header_length;
            return true;
        });
        peer_ = ends[1];
    }

    int number() const { return number_; }
    vexo::RawInstance& instance() const { return *vexo::raw_instances.find(number_); }

    // Queues one message. False when the system does not take one of this size.
    bool send(Span message) const {
        return ::send(peer_, message.data(), message.size(), 0) ==
               static_cast<ssize_t>(message.size());
    }

private:
    int number_;
    int peer_;
};

}  // namespace fuzz

#endif
