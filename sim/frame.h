// The Ethernet frames of the raw path, built and taken apart.
#ifndef SIM_FRAME_H
#define SIM_FRAME_H

#include <optional>

#include "sim/fault.h"
#include "sim/wire.h"

namespace sim {

inline constexpr uint16_t kFrameEthertype = 0xC815;

enum class FrameCode : uint8_t { package = 144, input = 145, command = 146 };

struct Frame {
    MacAddress destination{};
    MacAddress source{};
    FrameCode code = FrameCode::package;
    uint16_t sequence = 0;
    BytesView payload;
};

// The bytes of a frame, with what the fault does to it.
Bytes build_frame(const Frame& frame, const Fault& fault = {});

// Nothing when the bytes are no frame of the raw path, or a damaged one. The payload lies within
// `bytes`.
std::optional<Frame> read_frame(BytesView bytes);

}  // namespace sim

#endif
