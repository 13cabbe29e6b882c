// The first request of a connection: the protocol version, and with it the path of cyclic data.
#ifndef WIRE_NEGOTIATION_H
#define WIRE_NEGOTIATION_H

#include "wire/message.h"

namespace vexo::wire {

// Whether `mode` asks for cyclic data in raw frames.
constexpr bool asks_for_frames(int64_t mode) {
    return mode > 2;
}

// The version word that asks for `mode`. From 3 on cyclic data goes in raw frames, and only there
// `nack` has a meaning. A negative mode has all flags set by its sign, that of raw frames included.
uint64_t version_word(int64_t mode, bool nack);

// `host` is sent when the word asks for raw frames, which then come to that address.
MessageWriter negotiation_request(std::span<uint8_t> buffer, uint64_t word, const MacBytes& host);

// Where raw frames to the controller go, as the reply to such a request says. Zeros where the reply
// ends early.
MacBytes controller_mac(std::span<const uint8_t> reply);

}  // namespace vexo::wire

#endif
