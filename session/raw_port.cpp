#include "session/raw_port.h"

#include <linux/filter.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <mutex>
#include <vector>

#include "session/descriptor.h"

namespace vexo::session {

namespace {

constexpr int kQueueBytes = 4 << 20;
constexpr uint32_t kSourceOffset = 6;
constexpr uint32_t kCodeOffset = 15;

void filter(int descriptor, std::vector<sock_filter> program) {
    const sock_fprog attached{static_cast<unsigned short>(program.size()), program.data()};
    setsockopt(descriptor, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached);
}

sock_filter load(uint16_t size, uint32_t offset) {
    return BPF_STMT(static_cast<uint16_t>(BPF_LD | size | BPF_ABS), offset);
}

// Goes on when the loaded value is this one, else to the last statement, which drops the frame.
sock_filter only(uint32_t value, size_t statements_left) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, 0, static_cast<uint8_t>(statements_left));
}

sock_filter answer(uint32_t bytes) {
    return BPF_STMT(BPF_RET | BPF_K, bytes);
}

uint32_t big_endian(const uint8_t* bytes, size_t size) {
    uint32_t value = 0;
    for (size_t i = 0; i < size; ++i) {
        value = value << 8 | bytes[i];
    }
    return value;
}

// The EtherType is a matter of the socket's protocol.
std::vector<sock_filter> frames_of(const wire::MacBytes& source, size_t extra) {
    return {
        load(BPF_W, kSourceOffset),
        only(big_endian(source.data(), 4), extra + 3),
        load(BPF_H, kSourceOffset + 4),
        only(big_endian(source.data() + 4, 2), extra + 1),
    };
}

}  // namespace

RawPort::RawPort(const char* interface)
    : descriptor_(above_standard(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0))) {
    if (descriptor_ < 0) {
        return;
    }
    filter(descriptor_, {answer(0)});
    const int on = 1;
    setsockopt(descriptor_, SOL_SOCKET, SO_TIMESTAMPNS, &on, sizeof on);
    setsockopt(descriptor_, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
    if (setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUFFORCE, &kQueueBytes, sizeof kQueueBytes) !=
        0) {
        setsockopt(descriptor_, SOL_SOCKET, SO_RCVBUF, &kQueueBytes, sizeof kQueueBytes);
    }
    if (!bind_to(interface)) {
        const int cause = errno;
        close(descriptor_);
        descriptor_ = -1;
        errno = cause;
    }
}

RawPort::~RawPort() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

bool RawPort::bind_to(const char* interface) {
    ifreq request{};
    std::copy_n(interface,
                std::min(std::char_traits<char>::length(interface), size_t{IFNAMSIZ - 1}),
                request.ifr_name);
    if (ioctl(descriptor_, SIOCGIFHWADDR, &request) != 0) {
        return false;
    }
    std::copy_n(reinterpret_cast<const uint8_t*>(request.ifr_hwaddr.sa_data), own_.size(),
                own_.begin());
    sockaddr_ll local{};
    local.sll_family = AF_PACKET;
    local.sll_protocol = htons(wire::kEtherType);
    local.sll_ifindex = static_cast<int>(if_nametoindex(interface));
    return bind(descriptor_, reinterpret_cast<sockaddr*>(&local), sizeof local) == 0;
}

void RawPort::listen_to(const wire::MacBytes& controller) {
    controller_ = controller;
    std::vector<sock_filter> program = frames_of(controller, 0);
    program.push_back(answer(UINT32_MAX));
    program.push_back(answer(0));
    filter(descriptor_, std::move(program));
}

void RawPort::listen_to(const wire::MacBytes& controller, wire::FrameCode code) {
    controller_ = controller;
    std::vector<sock_filter> program = frames_of(controller, 2);
    program.push_back(load(BPF_B, kCodeOffset));
    program.push_back(only(static_cast<uint8_t>(code), 1));
    program.push_back(answer(UINT32_MAX));
    program.push_back(answer(0));
    filter(descriptor_, std::move(program));
}

Sent RawPort::send(wire::FrameCode code, std::span<uint8_t> frame) {
    const std::lock_guard lock(sending_);
    if (broken_) {
        return Sent::broken;
    }
    wire::seal_ethernet_frame({controller_, own_, static_cast<uint8_t>(code), sequence_++}, frame);
    const ssize_t sent = ::send(descriptor_, frame.data(), frame.size(), MSG_DONTWAIT);
    return sent >= 0 ? Sent::whole : Sent::no_room;
}

uint32_t RawPort::drops() {
    tpacket_stats counts{};
    socklen_t size = sizeof counts;
    return getsockopt(descriptor_, SOL_PACKET, PACKET_STATISTICS, &counts, &size) == 0
               ? counts.tp_drops
               : 0;
}

// Packet sockets know no shutdown: one that is bound to nothing receives nothing, and its filter
// drops the rest. Whoever waits looks at the connection again when its own limit ends.
void RawPort::abort() {
    const std::lock_guard lock(sending_);
    broken_ = true;
}

}  // namespace vexo::session
