#include "sim/frame.h"

#include <algorithm>

namespace sim {

namespace {

constexpr size_t kEthernetSize = 14;
constexpr size_t kHeaderSize = 12;
constexpr size_t kChecksumOffset = 2;  // in the header
constexpr uint8_t kMarker = 0xA6;
constexpr uint16_t kMagic = 0xB7C8;

uint16_t big_endian(BytesView data, size_t at) {
    return static_cast<uint16_t>(data[at] << 8 | data[at + 1]);
}

void put_big_endian(Bytes& out, size_t at, uint16_t value) {
    out[at] = static_cast<uint8_t>(value >> 8);
    out[at + 1] = static_cast<uint8_t>(value);
}

// The Internet checksum, summed in network order.
uint16_t checksum(BytesView data) {
    uint32_t sum = 0;
    for (size_t at = 0; at + 1 < data.size(); at += 2) {
        sum += big_endian(data, at);
    }
    if (data.size() % 2 != 0) {
        sum += static_cast<uint32_t>(data.back() << 8);
    }
    while (sum > 0xFFFF) {
        sum = (sum >> 16) + (sum & 0xFFFF);
    }
    return static_cast<uint16_t>(~sum);
}

}  // namespace

Bytes build_frame(const Frame& frame, const Fault& fault) {
    Bytes bytes;
    Writer out(bytes);
    out.bytes(frame.destination);
    out.bytes(fault.source.value_or(frame.source));
    if (fault.tagged) {
        out.bytes(Bytes{0x81, 0x00, 0x00, 0x05});
    }
    out.bytes(Bytes{kFrameEthertype >> 8, kFrameEthertype & 0xFF});
    const size_t start = bytes.size();
    out.number(kMarker);
    out.number(fault.code.value_or(static_cast<uint8_t>(frame.code)));
    out.number(uint16_t{0});  // the checksum's place
    out.number(kMagic);
    out.number(frame.sequence);
    out.number(fault.payload_length.value_or(static_cast<uint16_t>(frame.payload.size())));
    out.number(uint16_t{0});
    out.bytes(frame.payload);
    put_big_endian(bytes, start + kChecksumOffset, checksum(BytesView(bytes).subspan(start)));
    if (fault.altered) {
        bytes.back() ^= 0xFF;
    }
    return bytes;
}

std::optional<Frame> read_frame(BytesView bytes) {
    Frame frame;
    Reader in(bytes);
    std::ranges::copy(in.bytes(frame.destination.size()), frame.destination.begin());
    std::ranges::copy(in.bytes(frame.source.size()), frame.source.begin());
    in.bytes(2);  // the socket takes frames of one EtherType only
    const bool marked = in.number<uint8_t>() == kMarker;
    frame.code = static_cast<FrameCode>(in.number<uint8_t>());
    in.bytes(2);  // checksum
    const bool magical = in.number<uint16_t>() == kMagic;
    frame.sequence = in.number<uint16_t>();
    const auto length = in.number<uint16_t>();
    in.bytes(2);
    frame.payload = in.bytes(length);
    // A sum that includes its own checksum comes to zero.
    const bool sound = in.ok() && checksum(bytes.subspan(kEthernetSize, kHeaderSize + length)) == 0;
    return sound && marked && magical ? std::optional(frame) : std::nullopt;
}

}  // namespace sim
