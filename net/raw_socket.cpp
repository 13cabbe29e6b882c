#include "net/raw_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "net/raw_frame.h"
#include "net/raw_instance.h"
#include "net/raw_internal.h"
#include "net/raw_open.h"

uint8_t sock_raw_mcast_addr[6] = {0x01, 0x0E, 0xCF, 0x00, 0x00, 0x00};

namespace vexo {
namespace {

int open_socket(const char* interface_name, uint32_t mode, uint32_t* interface_index) {
    switch (mode) {
        case SOCKET_RAW_MODE_IP:
            return socket_raw_icmp_create(IPPROTO_ICMP);
        case SOCKET_RAW_MODE_ETHERNET:
            return socket_raw2_icmp_create(interface_name, interface_index);
        default:
            return -1;
    }
}

// The source address is left alone when the interface has none to tell.
void take_source_address(RawInstance& instance, const char* interface_name) {
    MacBytes mac;
    if (socket_get_macaddress(interface_name, mac.data()) == 0) {
        instance.source.set(mac.data());
    }
}

void fill_record(RawInstance& instance, uint32_t mode, int fd) {
    instance.fd = fd;
    instance.mode = mode;
    instance.version = kRawVersion;
    instance.marker = kRawMarker;
    instance.header_length =
        mode == SOCKET_RAW_MODE_ETHERNET ? ethernet::kHeaderLength : ip::kHeaderLength;
    instance.sequence = 0;
    instance.peer_address = 0;
    instance.destination.set(sock_raw_mcast_addr);
}

long send_ethernet(RawInstance& instance, uint8_t code, std::span<uint8_t> frame, int length) {
    seal_ethernet_frame(instance, code, frame);
    const long sent = send(instance.fd, frame.data(), static_cast<size_t>(length), 0);
    if (sent != length) {
        ++sockrawsenderrcnt;
    }
    return sent;
}

long send_ip(RawInstance& instance, in_addr_t peer, uint8_t code, std::span<uint8_t> message,
             int length) {
    seal_ip_message(instance, code, message);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = peer;
    return sendto(instance.fd, message.data(), static_cast<size_t>(length), 0,
                  reinterpret_cast<const sockaddr*>(&address), sizeof address);
}

long receive_ethernet(RawInstance& instance, uint8_t* code, uint8_t** position, size_t received) {
    const long result = open_ethernet_frame(instance, {*position, received}, *code);
    if (result >= 0) {
        *position += instance.header_length;
    }
    return result;
}

long receive_ip(RawInstance& instance, uint8_t* code, uint8_t** position, size_t received) {
    const std::span<uint8_t> datagram(*position, received);
    *position += ip_header_length(datagram);
    const long result = open_ip_datagram(instance, datagram, *code);
    if (result >= 0) {
        *position += instance.header_length;
    }
    return result;
}

// `flags` as for recv(2).
long receive(int number, uint8_t* code, uint8_t** position, unsigned capacity, int flags) {
    RawInstance* const instance = find_raw_instance(number);
    if (instance == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    const ssize_t received = recv(instance->fd, *position, capacity, flags);
    if (received == -1) {
        return SOCKET_RAW_NOTHING;
    }
    switch (instance->mode) {
        case SOCKET_RAW_MODE_ETHERNET:
            return receive_ethernet(*instance, code, position, static_cast<size_t>(received));
        case SOCKET_RAW_MODE_IP:
            return receive_ip(*instance, code, position, static_cast<size_t>(received));
        default:
            return SOCKET_RAW_MALFORMED;
    }
}

// 0 after `use` of the instance, or -100.
template <typename Use>
int with_instance(int number, Use use) {
    RawInstance* const instance = find_raw_instance(number);
    if (instance == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    use(*instance);
    return 0;
}

}  // namespace

int raw_descriptor(int instance) {
    const RawInstance* const found = find_raw_instance(instance);
    return found == nullptr ? -1 : found->fd;
}

long raw_try_receive(int instance, uint8_t* code, uint8_t** position, unsigned capacity) {
    return receive(instance, code, position, capacity, MSG_DONTWAIT);
}

}  // namespace vexo

using vexo::find_raw_instance;
using vexo::RawInstance;

int socket_raw_create(const char* interface_name, int mode) {
    const int number = vexo::claim_raw_instance();
    if (number == -1) {
        return -1;
    }
    RawInstance& instance = vexo::sockrawinst[number];
    const uint32_t kind = static_cast<uint32_t>(mode) & 0xFFFF;
    const int fd = vexo::open_socket(interface_name, kind, &instance.interface_index);
    if (fd == -1) {
        vexo::sockrawuse[number] = 0;
        return -1;
    }
    vexo::fill_record(instance, kind, fd);
    vexo::take_source_address(instance, interface_name);
    return number;
}

int socket_raw_free(int instance) {
    return vexo::with_instance(instance, [&](RawInstance& found) {
        close(found.fd);
        found.fd = -1;
        vexo::sockrawuse[instance] = 0;
    });
}

int socket_raw_set_peerip(int instance, uint32_t address) {
    if (address == 0) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    return vexo::with_instance(instance, [&](RawInstance& found) {
        found.peer_address.store(htonl(address), std::memory_order_relaxed);
    });
}

int socket_raw_set_dstmac(int instance, const uint8_t mac[6]) {
    return vexo::with_instance(instance, [&](RawInstance& found) { found.destination.set(mac); });
}

int socket_raw_set_srcmac(int instance, const uint8_t mac[6]) {
    return vexo::with_instance(instance, [&](RawInstance& found) { found.source.set(mac); });
}

int socket_raw_get_srcmac(int instance, uint8_t mac[6]) {
    return vexo::with_instance(instance, [&](const RawInstance& found) {
        std::memcpy(mac, found.source.get().data(), sizeof(vexo::MacBytes));
    });
}

int socket_raw_applysendbuf(int instance, uint8_t** position) {
    const RawInstance* const found = find_raw_instance(instance);
    if (found == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    *position += found->header_length;
    return found->header_length;
}

long socket_raw_sendto(int instance, uint8_t code, void* frame, int length) {
    RawInstance* const found = find_raw_instance(instance);
    if (found == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    const in_addr_t peer = found->peer_address.load(std::memory_order_relaxed);
    if (found->mode == SOCKET_RAW_MODE_IP && peer == 0) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    if (found->version != vexo::kRawVersion) {
        return SOCKET_RAW_MALFORMED;
    }
    // A negative length stays one for the system, which refuses it.
    const std::span<uint8_t> bytes(static_cast<uint8_t*>(frame),
                                   length > 0 ? static_cast<size_t>(length) : 0);
    switch (found->mode) {
        case SOCKET_RAW_MODE_ETHERNET:
            return vexo::send_ethernet(*found, code, bytes, length);
        case SOCKET_RAW_MODE_IP:
            return vexo::send_ip(*found, peer, code, bytes, length);
        default:
            return SOCKET_RAW_MALFORMED;
    }
}

long socket_raw_recvfrom(int instance, uint8_t* code, uint8_t** position, unsigned capacity) {
    return vexo::receive(instance, code, position, capacity, 0);
}
