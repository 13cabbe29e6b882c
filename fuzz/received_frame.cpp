// Without this a frame could lead the receive thread to write outside its buffers, or be another
// controller's. Frames are taken as they come and with their checksum put right.
#include <sys/poll.h>

#include <cstring>
#include <vector>

#include "client/received_stream.h"
#include "client/registry.h"
#include "fuzz/controller.h"
#include "fuzz/raw_link.h"
#include "net/raw_socket.h"
#include "wire/checksum.h"

using namespace fuzz;

namespace {

constexpr size_t kMessage = 14;
constexpr size_t kChecksum = kMessage + 2;
constexpr size_t kLength = kMessage + 8;
constexpr size_t kPayload = kMessage + 12;
constexpr uint8_t kUntouched = 0xA5;

class Receiver {
public:
    Receiver() : link_(SOCKET_RAW_MODE_ETHERNET, vexo::wire::kEthernetHeader) {
        vexo::Dataspace& d = dataspace();
        d.raw_socket = link_.number();
        d.link_mode = vexo::kLinkRaw;
        d.streaming = vexo::kStarted;
        pass();
    }

    void take(Span frame) {
        vexo::Dataspace& d = dataspace();
        std::memset(d.output_store, kUntouched, sizeof d.output_store);
        std::memset(d.response, kUntouched, sizeof d.response);
        std::memset(d.request, kUntouched, sizeof d.request);
        if (link_.send(frame)) {
            polled_.revents = POLLIN;
            pass();
        }
    }

private:
    void pass() { stream_.serve(*vexo::find_live_state(handle()), polled_); }

    RawLink link_;
    vexo::ReceivedStream stream_{handle()};
    pollfd polled_{-1, POLLIN, 0};
};

bool untouched_behind(const uint8_t* buffer, size_t size, size_t used) {
    static const std::vector<uint8_t> untouched(vexo::kBufferSize, kUntouched);
    return used >= size || std::memcmp(buffer + used, untouched.data(), size - used) == 0;
}

void check_stored(Span frame) {
    const vexo::Dataspace& d = dataspace();
    const Span payload = frame.subspan(std::min(frame.size(), kPayload));
    size_t word = 0;
    std::memcpy(&word, payload.data(), std::min(payload.size(), sizeof(uint16_t)));
    const size_t used = std::max(payload.size(), word);
    check(untouched_behind(d.output_store, sizeof d.output_store, used),
          "a package is no longer than its frame and its length word");
    check(untouched_behind(d.response, sizeof d.response, used),
          "a reply is no longer than its frame and its length word");
    check(untouched_behind(d.request, sizeof d.request, 0), "the request buffer is left alone");
}

// With a true checksum, where the frame is long enough to have one.
std::vector<uint8_t> sealed(Span frame) {
    std::vector<uint8_t> copy(frame.begin(), frame.end());
    if (copy.size() >= kPayload) {
        const size_t payload = static_cast<size_t>(copy[kLength] | copy[kLength + 1] << 8);
        const size_t covered = std::min(copy.size() - kMessage, kPayload - kMessage + payload);
        copy[kChecksum] = copy[kChecksum + 1] = 0;
        const uint16_t sum = vexo::wire::internet_checksum({copy.data() + kMessage, covered});
        copy[kChecksum] = static_cast<uint8_t>(sum);
        copy[kChecksum + 1] = static_cast<uint8_t>(sum >> 8);
    }
    return copy;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Receiver receiver;
    Input input(data, size);
    const bool foreign = (input.u8() & 1) != 0;
    const Span frame = input.rest();
    if (frame.size() >= 12) {
        std::memcpy(dataspace().controller_mac, frame.data() + 6, 6);
        dataspace().controller_mac[5] ^= foreign ? 1 : 0;
    }
    receiver.take(frame);
    check_stored(frame);
    receiver.take(sealed(frame));
    check_stored(frame);
    check(!foreign || dataspace().output_store[0] == kUntouched, "foreign frames are dropped");
    return 0;
}
