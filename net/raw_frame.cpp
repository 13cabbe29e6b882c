#include "net/raw_frame.h"

#include "net/raw_socket.h"
#include "wire/checksum.h"

namespace vexo {

void seal_ethernet_frame(RawInstance& instance, uint8_t code, std::span<uint8_t> frame) {
    wire::seal_ethernet_frame(
        {instance.destination.get(), instance.source.get(), code, instance.sequence++}, frame);
}

void seal_ip_message(RawInstance& instance, uint8_t code, std::span<uint8_t> message) {
    wire::seal_ip_message(code, instance.sequence++, message);
}

long open_ethernet_frame(const RawInstance& instance, std::span<uint8_t> frame, uint8_t& code) {
    if (instance.version != kRawVersion) {
        return SOCKET_RAW_MALFORMED;
    }
    const wire::OpenedEthernetFrame opened = wire::open_ethernet_frame(frame);
    if (opened.fault == wire::FrameFault::malformed) {
        return SOCKET_RAW_MALFORMED;
    }
    code = opened.code;
    if (opened.fault == wire::FrameFault::bad_checksum) {
        return SOCKET_RAW_BAD_CHECKSUM;
    }
    return static_cast<long>(opened.payload.size());
}

long open_ip_datagram(RawInstance& instance, std::span<uint8_t> datagram, uint8_t& code) {
    const wire::OpenedIpDatagram opened = wire::open_ip_datagram(datagram);
    if (instance.version != kRawVersion || opened.fault != wire::FrameFault::none) {
        return SOCKET_RAW_MALFORMED;
    }
    instance.peer_address.store(opened.source, std::memory_order_relaxed);
    code = opened.code;
    return static_cast<long>(opened.payload.size());
}

}  // namespace vexo

uint32_t socket_raw_ip_cksum(const uint16_t* data, int count) {
    const size_t size = count > 0 ? static_cast<size_t>(count) : 0;
    return vexo::wire::internet_checksum({reinterpret_cast<const uint8_t*>(data), size});
}
