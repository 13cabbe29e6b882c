// The messages of the fast path as an instance sends and receives them.
#ifndef NET_RAW_FRAME_H
#define NET_RAW_FRAME_H

#include <cstdint>
#include <span>

#include "net/raw_instance.h"
#include "wire/frame.h"

namespace vexo {

namespace ethernet {
inline constexpr uint16_t kOurType = wire::kEtherType;
inline constexpr uint8_t kHeaderLength = wire::kEthernetHeader;
}  // namespace ethernet

namespace ip {
inline constexpr uint8_t kHeaderLength = wire::kIpHeader;
}

inline constexpr uint8_t kRawMarker = 0xA6;

using wire::ip_header_length;

// Fill in the header of a frame or message, and count the sequence number on.
void seal_ethernet_frame(RawInstance& instance, uint8_t code, std::span<uint8_t> frame);
void seal_ip_message(RawInstance& instance, uint8_t code, std::span<uint8_t> message);

// Checks a received frame and takes its message code. Returns the payload length, -102 or -103.
// The payload follows the header, which 802.1Q tags put off by 4 bytes each.
long open_ethernet_frame(const RawInstance& instance, std::span<uint8_t> frame, uint8_t& code);

// Checks a received datagram, which begins with its IPv4 header, takes its message code and makes
// its sender the peer. Returns the payload length or -102.
long open_ip_datagram(RawInstance& instance, std::span<uint8_t> datagram, uint8_t& code);

}  // namespace vexo

#endif
