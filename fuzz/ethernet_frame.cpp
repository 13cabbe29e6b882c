// Without this a frame could be read or written outside its bytes. Each input is taken as it comes,
// with its checksum put right, so that what is behind the check is reached, and as the payload of a
// frame.
#include <cstring>
#include <vector>

#include "fuzz/input.h"
#include "wire/checksum.h"
#include "wire/frame.h"

using namespace fuzz;
using namespace vexo::wire;

namespace {

constexpr size_t kMessage = 14;
constexpr size_t kChecksum = kMessage + 2;
constexpr size_t kBehindChecksum = kEthernetHeader - kChecksum;
constexpr size_t kPayloadLength = kMessage + 8;

// Opens an exact copy of the frame and checks what must hold of the result.
OpenedEthernetFrame open(Span frame) {
    std::vector<uint8_t> copy(frame.begin(), frame.end());
    OpenedEthernetFrame opened = open_ethernet_frame(copy);
    if (opened.fault != FrameFault::malformed) {
        const auto offset = static_cast<size_t>(opened.payload.data() - copy.data());
        check(offset >= kEthernetHeader && offset + opened.payload.size() <= frame.size(),
              "the payload lies in the frame, behind its header");
        check(std::memcmp(opened.source.data(), frame.data() + 6, 6) == 0, "the sender is known");
        opened.payload = frame.subspan(offset, opened.payload.size());
        const size_t checksum = offset - kBehindChecksum;
        std::memcpy(copy.data() + checksum, frame.data() + checksum, sizeof(uint16_t));
    }
    check(std::ranges::equal(copy, frame), "only the checksum is cleared");
    return opened;
}

void open_with_true_checksum(std::vector<uint8_t> frame) {
    if (frame.size() < kEthernetHeader) {
        return;
    }
    const size_t payload =
        static_cast<size_t>(frame[kPayloadLength] | frame[kPayloadLength + 1] << 8);
    const size_t covered = std::min(frame.size() - kMessage, kEthernetHeader - kMessage + payload);
    frame[kChecksum] = frame[kChecksum + 1] = 0;
    const uint16_t sum = internet_checksum(Span(frame).subspan(kMessage, covered));
    frame[kChecksum] = static_cast<uint8_t>(sum);
    frame[kChecksum + 1] = static_cast<uint8_t>(sum >> 8);
    const bool tagged = frame[12] == 0x81 && frame[13] == 0;
    check(tagged || open(frame).fault != FrameFault::bad_checksum, "a true checksum holds");
}

void send_and_receive(uint8_t code, Span payload) {
    if (payload.size() > 0xFFFF) {
        return;
    }
    std::vector<uint8_t> frame(kEthernetHeader + payload.size());
    std::copy(payload.begin(), payload.end(), frame.begin() + kEthernetHeader);
    seal_ethernet_frame({{1, 2, 3, 4, 5, 6}, {6, 5, 4, 3, 2, 1}, code, 0x1234}, frame);
    const OpenedEthernetFrame opened = open(frame);
    check(opened.fault == FrameFault::none && opened.code == code && opened.sequence == 0x1234 &&
              std::ranges::equal(opened.payload, payload),
          "what is sealed opens");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Input input(data, size);
    const uint8_t code = input.u8();
    const Span frame = input.rest();
    open(frame);
    open_with_true_checksum({frame.begin(), frame.end()});
    send_and_receive(code, frame);
    return 0;
}
