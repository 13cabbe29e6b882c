// The numbers that client and controller agree on.
#ifndef WIRE_PROTOCOL_H
#define WIRE_PROTOCOL_H

#include <array>
#include <cstddef>
#include <cstdint>

namespace vexo::wire {

// TCP ports of the controller.
inline constexpr uint16_t kIoPort = 2295;       // requests, replies and input packages
inline constexpr uint16_t kControlPort = 2297;  // servo set-points and their acknowledgements
inline constexpr uint16_t kReceivePort = 2299;  // output packages, unless they come in frames

// What a message is: the byte behind its length word.
enum class Letter : uint8_t {
    negotiation = 'V',
    output_page = 'R',
    input_page = 'r',
    method_page = 'M',
    output_recipe = 'O',
    input_recipe = 'I',
    start = 'S',
    pause = 'P',
    package = 'U',  // of output or input values
    controller_version = 'v',
    method_call = 'm',
};

// What a raw frame carries.
enum class FrameCode : uint8_t {
    output_package = 144,
    input_package = 145,
    set_point = 146,  // and back: the acknowledgement
};

// Flags of the protocol version word above the version itself.
inline constexpr uint32_t kVersionRaw = 0x10000;   // cyclic data in raw frames
inline constexpr uint32_t kVersionNack = 0x20000;  // set-points are not acknowledged

inline constexpr size_t kMacSize = 6;
using MacBytes = std::array<uint8_t, kMacSize>;

}  // namespace vexo::wire

#endif
