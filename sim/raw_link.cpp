#include "sim/raw_link.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

namespace sim {

namespace {

void require(bool condition, const std::string& interface) {
    if (!condition) {
        throw std::system_error(errno, std::generic_category(),
                                "no raw frames on interface " + interface);
    }
}

MacAddress hardware_address(int socket, const std::string& interface) {
    ifreq request{};
    interface.copy(request.ifr_name, IFNAMSIZ - 1);
    require(ioctl(socket, SIOCGIFHWADDR, &request) == 0, interface);
    MacAddress mac;
    std::copy_n(request.ifr_hwaddr.sa_data, mac.size(), mac.begin());
    return mac;
}

// Has the interface take frames for an address that is not its own.
void also_listen_for(int socket, unsigned index, const MacAddress& mac) {
    packet_mreq membership{};
    membership.mr_ifindex = static_cast<int>(index);
    membership.mr_type = PACKET_MR_UNICAST;
    membership.mr_alen = static_cast<unsigned short>(mac.size());
    std::copy(mac.begin(), mac.end(), membership.mr_address);
    setsockopt(socket, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership);
}

bool is_group(const MacAddress& mac) {
    return (mac[0] & 1) != 0;
}

}  // namespace

// The socket is bound before it takes any protocol, so that no frame of another interface gets in.
RawLink::RawLink(const std::string& interface, const std::optional<MacAddress>& mac)
    : socket_(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    require(socket_.get() >= 0, interface);
    const unsigned index = if_nametoindex(interface.c_str());
    require(index != 0, interface);
    mac_ = hardware_address(socket_.get(), interface);
    if (mac) {
        mac_ = *mac;
        also_listen_for(socket_.get(), index, mac_);
    }
    sockaddr_ll local{};
    local.sll_family = AF_PACKET;
    local.sll_protocol = htons(kFrameEthertype);
    local.sll_ifindex = static_cast<int>(index);
    require(bind(socket_.get(), reinterpret_cast<sockaddr*>(&local), sizeof local) == 0, interface);
}

void RawLink::receive(Controller& controller, bool deaf) {
    uint8_t buffer[2048];
    sockaddr_ll from{};
    socklen_t size = sizeof from;
    ssize_t got = 0;
    while ((got = recvfrom(socket_.get(), buffer, sizeof buffer, 0,
                           reinterpret_cast<sockaddr*>(&from), &size)) >= 0) {
        if (from.sll_pkttype == PACKET_OUTGOING || deaf) {
            continue;
        }
        const auto frame = read_frame({buffer, static_cast<size_t>(got)});
        if (!frame) {
            controller.frame_rejected();
        } else if (frame->destination == mac_ || is_group(frame->destination)) {
            take(*frame, controller);
        }
    }
}

void RawLink::take(const Frame& frame, Controller& controller) {
    const auto client = controller.raw_client();
    const char letter = frame.payload.size() > 2 ? static_cast<char>(frame.payload[2]) : '\0';
    const bool fits = (frame.code == FrameCode::input && letter == 'U') ||
                      (frame.code == FrameCode::command && letter == 'm');
    if (!client || frame.source != *client || !fits) {
        controller.frame_rejected();
        return;
    }
    const auto reply = controller.answer(Port::raw, frame.payload);
    if (reply) {
        deliver(FrameCode::command, *client, *reply);
    }
}

bool RawLink::deliver(FrameCode code, const MacAddress& client, const Outgoing& out) {
    const Fault fault = out.fault.value_or(Fault{});
    sequence_ = static_cast<uint16_t>(sequence_ + fault.gap);
    const Bytes frame = build_frame({client, mac_, code, sequence_++, out.message}, fault);
    if (fault.lost) {
        return false;
    }
    if (!out.fault && outbox_.empty()) {
        return transmit(frame);
    }
    const Outbox::Item item{frame, after(Clock::now(), fault.delay)};
    outbox_.add(std::vector(fault.doubled ? 2 : 1, item), fault);
    flush();
    return true;
}

void RawLink::restart() {
    outbox_ = {};
    sequence_ = 0;
}

bool RawLink::transmit(BytesView frame) {
    return send(socket_.get(), frame.data(), frame.size(), 0) >= 0;
}

// A frame that cannot be sent is lost, as on a wire.
void RawLink::flush() {
    outbox_.flush(Clock::now(), [this](BytesView frame) {
        transmit(frame);
        return static_cast<ssize_t>(frame.size());
    });
}

}  // namespace sim
