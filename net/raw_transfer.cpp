// Sending and receiving on the fast path.
#include <netinet/in.h>
#include <sys/socket.h>

#include <optional>

#include "net/raw_endpoint.h"
#include "net/raw_instance.h"
#include "net/raw_socket.h"
#include "wire/frame.h"

namespace vexo {
namespace {

long send_ethernet(RawInstance& instance, uint8_t code, std::span<uint8_t> frame, int length) {
    wire::seal_ethernet_frame(
        {instance.destination.get(), instance.source.get(), code, instance.sequence++}, frame);
    const long sent = send(instance.fd, frame.data(), static_cast<size_t>(length), 0);
    if (sent != length) {
        ++sockrawsenderrcnt;
    }
    return sent;
}

long send_ip(RawInstance& instance, in_addr_t peer, uint8_t code, std::span<uint8_t> message,
             int length) {
    wire::seal_ip_message(code, instance.sequence++, message);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = peer;
    return sendto(instance.fd, message.data(), static_cast<size_t>(length), 0,
                  reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

// What a receive has brought, and how far it moves its caller's position.
struct Arrival {
    long result;
    std::optional<uint8_t> code = {};
    size_t advance = 0;
    std::optional<MacBytes> sender = {};
};

// The advance is that of an untagged frame, whatever tags there are: deployed applications take the
// payload from there.
Arrival open_frame(const RawInstance& instance, std::span<uint8_t> frame) {
    if (instance.version != kRawVersion) {
        return {SOCKET_RAW_MALFORMED};
    }
    const wire::OpenedEthernetFrame opened = wire::open_ethernet_frame(frame);
    switch (opened.fault) {
        case wire::FrameFault::malformed:
            return {SOCKET_RAW_MALFORMED};
        case wire::FrameFault::bad_checksum:
            return {SOCKET_RAW_BAD_CHECKSUM, opened.code};
        case wire::FrameFault::none:
            break;
    }
    return {static_cast<long>(opened.payload.size()), opened.code, instance.header_length,
            opened.source};
}

// The IPv4 header is passed over even when what follows is not ours.
Arrival open_datagram(RawInstance& instance, std::span<const uint8_t> datagram) {
    const size_t ip_header = wire::ip_header_length(datagram);
    const wire::OpenedIpDatagram opened = wire::open_ip_datagram(datagram);
    if (instance.version != kRawVersion || opened.fault != wire::FrameFault::none) {
        return {SOCKET_RAW_MALFORMED, {}, ip_header};
    }
    instance.peer_address.store(opened.source, std::memory_order_relaxed);
    return {static_cast<long>(opened.payload.size()), opened.code,
            ip_header + instance.header_length};
}

// `flags` as for recv(2).
Arrival receive(int number, std::span<uint8_t> buffer, int flags) {
    RawInstance* const instance = raw_instances.find(number);
    if (instance == nullptr) {
        return {SOCKET_RAW_BAD_INSTANCE};
    }
    const ssize_t received = recv(instance->fd, buffer.data(), buffer.size(), flags);
    if (received == -1) {
        return {SOCKET_RAW_NOTHING};
    }
    const auto message = buffer.first(static_cast<size_t>(received));
    switch (instance->mode) {
        case SOCKET_RAW_MODE_ETHERNET:
            return open_frame(*instance, message);
        case SOCKET_RAW_MODE_IP:
            return open_datagram(*instance, message);
        default:
            return {SOCKET_RAW_MALFORMED};
    }
}

}  // namespace

RawMessage raw_try_receive(int instance, std::span<uint8_t> buffer) {
    const Arrival arrival = receive(instance, buffer, MSG_DONTWAIT);
    const auto payload = arrival.result < 0
                             ? std::span<uint8_t>()
                             : buffer.subspan(arrival.advance, static_cast<size_t>(arrival.result));
    return {arrival.result, arrival.code.value_or(0), arrival.sender, payload};
}

}  // namespace vexo

using namespace vexo;

long socket_raw_sendto(int instance, uint8_t code, void* frame, int length) {
    RawInstance* const found = raw_instances.find(instance);
    if (found == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    const in_addr_t peer = found->peer_address.load(std::memory_order_relaxed);
    if (found->mode == SOCKET_RAW_MODE_IP && peer == 0) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    if (found->version != kRawVersion) {
        return SOCKET_RAW_MALFORMED;
    }
    // A negative length stays one for the system, which refuses it.
    const std::span<uint8_t> bytes(static_cast<uint8_t*>(frame),
                                   length > 0 ? static_cast<size_t>(length) : 0);
    switch (found->mode) {
        case SOCKET_RAW_MODE_ETHERNET:
            return send_ethernet(*found, code, bytes, length);
        case SOCKET_RAW_MODE_IP:
            return send_ip(*found, peer, code, bytes, length);
        default:
            return SOCKET_RAW_MALFORMED;
    }
}

long socket_raw_recvfrom(int instance, uint8_t* code, uint8_t** position, unsigned capacity) {
    const Arrival arrival = receive(instance, {*position, capacity}, 0);
    if (arrival.code) {
        *code = *arrival.code;
    }
    *position += arrival.advance;
    return arrival.result;
}
