// What a packet on the wire holds for us: a piece of a TCP stream, or a raw frame.
#ifndef TOOLS_CAPTURE_PACKET_H
#define TOOLS_CAPTURE_PACKET_H

#include <compare>
#include <cstddef>
#include <cstdint>
#include <span>
#include <variant>
#include <vector>

#include "wire/protocol.h"

namespace capture {

using Bytes = std::span<const uint8_t>;
using vexo::wire::MacBytes;

// How packets begin, by the numbers that libpcap has for it.
enum class LinkType : int {
    loopback = 0,
    ethernet = 1,
    ip = 12,       // nothing in front of it
    cooked = 113,  // of Linux, where all interfaces are captured together
    ipv4 = 228,
    cooked_v2 = 276,
};

struct Packet {
    int64_t time_ns = 0;  // since the epoch
    LinkType link = LinkType::ethernet;
    Bytes bytes;  // as much of it as was captured
};

struct Endpoint {
    uint32_t address = 0;  // IPv4, in host order
    uint16_t port = 0;

    auto operator<=>(const Endpoint&) const = default;
};

// Of a TCP connection.
struct Segment {
    Endpoint source;
    Endpoint destination;
    uint32_t sequence = 0;
    uint32_t acknowledged = 0;
    bool begins = false;        // SYN
    bool ends = false;          // FIN or RST
    bool acknowledges = false;  // ACK
    Bytes payload;              // as much of it as was captured
    size_t length = 0;          // of the whole payload
};

// A frame of the fast path, with its Ethernet header. Tags are left out.
struct RawFrame {
    std::vector<uint8_t> bytes;
};

// Neither of them for what is none of ours, or cut off before it can be told.
using Contents = std::variant<std::monostate, Segment, RawFrame>;
Contents contents_of(const Packet& packet);

}  // namespace capture

#endif
