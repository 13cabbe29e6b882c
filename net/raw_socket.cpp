#include "net/raw_socket.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

#include "net/raw_endpoint.h"
#include "net/raw_instance.h"
#include "net/raw_open.h"
#include "wire/checksum.h"
#include "wire/frame.h"

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
    instance.header_length =
        mode == SOCKET_RAW_MODE_ETHERNET ? wire::kEthernetHeader : wire::kIpHeader;
    instance.sequence = 0;
    instance.peer_address = 0;
    instance.destination.set(sock_raw_mcast_addr);
}

// 0 after `use` of the instance, or -100.
template <typename Use>
int with_instance(int number, Use use) {
    RawInstance* const instance = raw_instances.find(number);
    if (instance == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    use(*instance);
    return 0;
}

}  // namespace

int raw_descriptor(int instance) {
    const RawInstance* const found = raw_instances.find(instance);
    return found == nullptr ? -1 : found->fd;
}

void raw_enlarge_queue(int instance) {
    const int socket = raw_descriptor(instance);
    constexpr int kBytes = 4 << 20;
    if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &kBytes, sizeof kBytes) == -1) {
        setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &kBytes, sizeof kBytes);
    }
}

void raw_listen_to(int instance, const wire::MacBytes& controller) {
    const RawInstance* const found = raw_instances.find(instance);
    if (found == nullptr || found->mode != SOCKET_RAW_MODE_ETHERNET) {
        return;
    }
    auto statements = wire::filter_of_foreign_frames(controller);
    const sock_fprog program{wire::kForeignFilterSize, statements.data()};
    setsockopt(found->fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program);
}

void raw_listen_to_all(int instance) {
    if (const int socket = raw_descriptor(instance); socket >= 0) {
        const int ignored = 0;  // and yet the system wants one
        setsockopt(socket, SOL_SOCKET, SO_DETACH_FILTER, &ignored, sizeof ignored);
    }
}

}  // namespace vexo

using vexo::raw_instances;
using vexo::RawInstance;

int socket_raw_create(const char* interface_name, int mode) {
    return raw_instances.request([&](RawInstance& instance) {
        const uint32_t kind = static_cast<uint32_t>(mode) & 0xFFFF;
        const int fd = vexo::open_socket(interface_name, kind, &instance.interface_index);
        if (fd == -1) {
            return false;
        }
        vexo::fill_record(instance, kind, fd);
        vexo::take_source_address(instance, interface_name);
        return true;
    });
}

int socket_raw_free(int instance) {
    return vexo::with_instance(instance, [&](RawInstance& found) {
        close(found.fd);
        found.fd = -1;
        raw_instances.release(instance);
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
    const RawInstance* const found = raw_instances.find(instance);
    if (found == nullptr) {
        return SOCKET_RAW_BAD_INSTANCE;
    }
    *position += found->header_length;
    return found->header_length;
}

uint32_t socket_raw_ip_cksum(const uint16_t* data, int count) {
    const size_t size = count > 0 ? static_cast<size_t>(count) : 0;
    return vexo::wire::internet_checksum({reinterpret_cast<const uint8_t*>(data), size});
}
