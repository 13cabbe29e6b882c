// Opens the connections of a handle.
#include "client/receive_thread.h"
#include "client/registry.h"
#include "client/vexo.h"
#include "net/exchange_socket.h"
#include "net/raw_endpoint.h"
#include "net/raw_socket.h"
#include "wire/negotiation.h"

using namespace vexo;

namespace {

// Returns null, or what to say of the port that could not be reached.
const char* connect_ports(Dataspace& dataspace, const char* ip, bool with_receive_port) {
    dataspace.io_socket = socket_connect(ip, wire::kIoPort);
    if (dataspace.io_socket < 0) {
        return "Failed to connect to IO control interface";
    }
    dataspace.control_socket = socket_connect(ip, wire::kControlPort);
    if (dataspace.control_socket < 0) {
        return "Failed to connect to control interface";
    }
    if (with_receive_port) {
        dataspace.receive_socket = socket_connect(ip, wire::kReceivePort);
        if (dataspace.receive_socket < 0) {
            return "Failed to connect to receive interface";
        }
    }
    return nullptr;
}

}  // namespace

int32_t vexo_rawsocket_create(uint32_t handle, const char* interface, uint32_t kind,
                              uint8_t* srcmac) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_report_not_found(caller);
    if (!found) {
        return -1;
    }
    const int instance = socket_raw_create(interface, static_cast<int>(kind & 0xFFFF));
    if (instance < 0) {
        report(caller, "vexo_rawsocket_create---sock_raw create error:%d", instance);
        return VEXO_ERROR_RAW_SOCKET;
    }
    raw_enlarge_queue(instance);
    found->raw_socket = instance;
    found.state().own_endpoint = instance;
    if (srcmac != nullptr) {
        socket_raw_set_srcmac(instance, srcmac);
    }
    uint8_t* mac = found->host_mac;
    socket_raw_get_srcmac(instance, mac);
    record(caller, "vexo_rawsocket_create---srcmac:%02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1],
           mac[2], mac[3], mac[4], mac[5]);
    return 0;
}

int32_t vexo_create(uint32_t handle, const char* ip, const char* interface, int64_t mode,
                    uint8_t* srcmac) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_report_not_found(caller);
    if (!found) {
        return -1;
    }
    const bool raw = wire::asks_for_frames(mode);
    if (raw) {
        const int32_t result =
            vexo_rawsocket_create(handle, interface, SOCKET_RAW_MODE_ETHERNET, srcmac);
        if (result != 0) {
            report_verbatim(caller, "vexo_rawsocket_create result:%d\n", result);
            return result;
        }
    }
    const char* failure = connect_ports(*found, ip != nullptr ? ip : "", !raw);
    if (failure != nullptr) {
        report(caller, "%s", failure);
        const ReceivePause pause;
        drop_last_slot();
        if (found.state().close()) {
            found.state().end();
        }
        return -1;
    }
    shared(found->streaming).store(kNotStarted, std::memory_order_release);
    return 0;
}
