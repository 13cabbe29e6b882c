// The fast path's headers: 12 bytes behind those of Ethernet, or 8 behind those of IPv4. Nothing
// here reads or writes outside the bytes given, whatever these say.
#ifndef WIRE_FRAME_H
#define WIRE_FRAME_H

#include <linux/filter.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "wire/protocol.h"

namespace vexo::wire {

inline constexpr uint16_t kEtherType = 0xC815;
inline constexpr size_t kEthernetHeader = 26;  // Ethernet's own 14 bytes and 12 of ours
inline constexpr size_t kIpHeader = 8;         // behind the IPv4 header

enum class FrameFault : uint8_t { none, malformed, bad_checksum };

// A message of the fast path, taken apart. Meaningful as far as the fault lets it: the code also
// when only the checksum is wrong, the rest without a fault.
struct OpenedFrame {
    FrameFault fault = FrameFault::malformed;
    uint8_t code = 0;
    uint16_t sequence = 0;  // the sender counts its frames, modulo 65536
    std::span<const uint8_t> payload;
};

struct OpenedEthernetFrame : OpenedFrame {
    MacBytes source{};
};

struct OpenedIpDatagram : OpenedFrame {
    uint32_t source = 0;  // IPv4 address in network order
};

// Where a frame goes and what its header says. The payload lies in the frame already; so do the
// two bytes in front of it, which belong to its builder.
struct EthernetHeader {
    MacBytes destination;
    MacBytes source;
    uint8_t code;
    uint16_t sequence;
};
void seal_ethernet_frame(const EthernetHeader& header, std::span<uint8_t> frame);

// The message begins with our header; the system puts that of IPv4 in front.
void seal_ip_message(uint8_t code, uint16_t sequence, std::span<uint8_t> message);

// Takes a received frame apart, 802.1Q tags skipped, and clears its checksum field, over which the
// checksum is taken as 0. The EtherType behind the tags is not looked at.
OpenedEthernetFrame open_ethernet_frame(std::span<uint8_t> frame);

// A socket filter that drops the frames of other stations than this one. Those whose header is not
// good pass, whoever sends them: the receiver has an answer to them. A wrong checksum is nothing
// that a filter could find out.
inline constexpr size_t kForeignFilterSize = 23;
std::array<sock_filter, kForeignFilterSize> filter_of_foreign_frames(const MacBytes& station);

// Takes a received datagram apart, which begins with its IPv4 header. Its checksum is not looked
// at, and the payload ends with the datagram.
OpenedIpDatagram open_ip_datagram(std::span<const uint8_t> datagram);

// The length that the IPv4 header of a datagram claims to have.
size_t ip_header_length(std::span<const uint8_t> datagram);

}  // namespace vexo::wire

#endif
