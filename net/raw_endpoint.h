// What the client needs of its endpoint on the fast path, beside the public calls.
#ifndef NET_RAW_ENDPOINT_H
#define NET_RAW_ENDPOINT_H

#include <cstdint>
#include <optional>
#include <span>

#include "net/raw_socket.h"
#include "wire/protocol.h"

namespace vexo {

// The socket of an instance, to wait on for messages; -1 for a bad instance.
int raw_descriptor(int instance);

// Gives the socket room for what all stations of a link send while the receiving thread is kept
// from running for some tenths of a second. The system's limit holds for those who lack the
// privilege to go beyond it.
void raw_enlarge_queue(int instance);

// Has the kernel drop what other stations of the link send to each other and to us, before it costs
// a wake-up. Frames with a bad header pass, from wherever they come.
void raw_listen_to(int instance, const wire::MacBytes& controller);
void raw_listen_to_all(int instance);

struct RawMessage {
    long result;  // as of socket_raw_recvfrom
    uint8_t code;
    std::optional<wire::MacBytes> sender;  // of a frame; a datagram has none
    std::span<const uint8_t> payload;

    bool nothing() const { return result == SOCKET_RAW_NOTHING; }
};

// Receives into `buffer`, as socket_raw_recvfrom does, but without waiting in either mode.
RawMessage raw_try_receive(int instance, std::span<uint8_t> buffer);

}  // namespace vexo

#endif
