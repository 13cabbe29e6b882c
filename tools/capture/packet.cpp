#include "tools/capture/packet.h"

#include <algorithm>

#include "wire/frame.h"

namespace capture {
namespace {

constexpr uint16_t kIpv4 = 0x0800;
constexpr uint16_t kTag = 0x8100;
constexpr uint16_t kServiceTag = 0x88A8;
constexpr uint8_t kTcp = 6;

Bytes from(Bytes bytes, size_t offset) {
    return bytes.subspan(std::min(offset, bytes.size()));
}

// Numbers in network order; zeros behind the end.
uint8_t u8(Bytes bytes, size_t at) {
    return at < bytes.size() ? bytes[at] : uint8_t{0};
}

uint16_t u16(Bytes bytes, size_t at) {
    return static_cast<uint16_t>(u8(bytes, at) << 8 | u8(bytes, at + 1));
}

uint32_t u32(Bytes bytes, size_t at) {
    return uint32_t{u16(bytes, at)} << 16 | u16(bytes, at + 2);
}

// What stands behind the header of the link.
struct Linked {
    uint16_t type = 0;  // as Ethernet has it; 0: unknown
    MacBytes source{};
    Bytes rest;
};

MacBytes mac_at(Bytes bytes, size_t at) {
    MacBytes mac{};
    std::ranges::copy(from(bytes, at).first(std::min(mac.size(), from(bytes, at).size())),
                      mac.begin());
    return mac;
}

Linked without_link_header(const Packet& packet) {
    const Bytes bytes = packet.bytes;
    switch (packet.link) {
        case LinkType::ethernet:
            return {u16(bytes, 12), mac_at(bytes, 6), from(bytes, 14)};
        case LinkType::cooked:
            return {u16(bytes, 14), mac_at(bytes, 6), from(bytes, 16)};
        case LinkType::cooked_v2:
            return {u16(bytes, 0), mac_at(bytes, 12), from(bytes, 20)};
        case LinkType::ip:
        case LinkType::ipv4:
            return {kIpv4, {}, bytes};
        case LinkType::loopback:
            return {kIpv4, {}, from(bytes, 4)};
    }
    return {};
}

void skip_tags(Linked& linked) {
    while ((linked.type == kTag || linked.type == kServiceTag) && linked.rest.size() >= 4) {
        linked.type = u16(linked.rest, 2);
        linked.rest = from(linked.rest, 4);
    }
}

// Fragments do not occur: the sender of a stream cuts it to what the way takes.
bool is_whole_tcp(Bytes datagram) {
    return u8(datagram, 0) >> 4 == 4 && u8(datagram, 9) == kTcp && (u16(datagram, 6) & 0x3FFF) == 0;
}

Contents segment_of(Bytes datagram) {
    const size_t ip_header = vexo::wire::ip_header_length(datagram);
    const Bytes tcp = from(datagram, ip_header);
    const size_t tcp_header = size_t{u8(tcp, 12)} >> 4 << 2;
    if (!is_whole_tcp(datagram) || tcp.size() < 20 || tcp_header < 20) {
        return {};
    }
    Segment segment;
    segment.source = {u32(datagram, 12), u16(tcp, 0)};
    segment.destination = {u32(datagram, 16), u16(tcp, 2)};
    segment.sequence = u32(tcp, 4);
    segment.acknowledged = u32(tcp, 8);
    segment.begins = (u8(tcp, 13) & 0x02) != 0;
    segment.ends = (u8(tcp, 13) & 0x05) != 0;
    segment.acknowledges = (u8(tcp, 13) & 0x10) != 0;
    // Where the network card cuts the stream, the host's own header may leave the length out.
    const size_t told = u16(datagram, 2) != 0 ? u16(datagram, 2) : datagram.size();
    const size_t headers = ip_header + tcp_header;
    segment.length = told > headers ? told - headers : 0;
    segment.payload = from(tcp, tcp_header);
    segment.payload = segment.payload.first(std::min(segment.payload.size(), segment.length));
    return segment;
}

// As it came over Ethernet, wherever it was captured.
Contents frame_of(const Linked& linked) {
    RawFrame frame;
    frame.bytes.resize(2 * vexo::wire::kMacSize);
    std::ranges::copy(linked.source, frame.bytes.begin() + vexo::wire::kMacSize);
    frame.bytes.push_back(vexo::wire::kEtherType >> 8);
    frame.bytes.push_back(vexo::wire::kEtherType & 0xFF);
    frame.bytes.insert(frame.bytes.end(), linked.rest.begin(), linked.rest.end());
    return frame;
}

}  // namespace

Contents contents_of(const Packet& packet) {
    Linked linked = without_link_header(packet);
    skip_tags(linked);
    if (linked.type == kIpv4) {
        return segment_of(linked.rest);
    }
    return linked.type == vexo::wire::kEtherType ? frame_of(linked) : Contents{};
}

}  // namespace capture
