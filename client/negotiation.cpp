// Negotiates the protocol version, and with it the data path.
#include <cstring>

#include "client/exchange.h"
#include "client/registry.h"
#include "client/vexo.h"
#include "net/raw_socket.h"

using namespace vexo;

namespace {

constexpr uint32_t kSmallPage = 10;

// Puts the settings of `mode` in place and returns the version word to ask for.
uint64_t choose_path(Dataspace& dataspace, int64_t mode, uint32_t nack) {
    auto word = static_cast<uint64_t>(mode);
    const bool raw = mode > 2;
    shared(dataspace.link_mode).store(raw ? kLinkRaw : kLinkTcp, std::memory_order_relaxed);
    dataspace.page_size = mode > 1 ? VEXO_PAGE_ROWS : kSmallPage;
    if (raw) {
        dataspace.nack = nack != 0 ? 1 : 0;
        word |= kVersionRaw;
        word |= nack != 0 ? kVersionNack : 0;
    }
    return word;
}

// Raw frames go to the address that the reply gives.
void learn_controller_mac(Caller caller, Dataspace& dataspace) {
    uint8_t* mac = dataspace.controller_mac;
    reply_payload(dataspace).bytes(mac, kMacSize, kMacSize);
    socket_raw_set_dstmac(dataspace.raw_socket, mac);
    report(caller, "dstmac: %02X-%02X-%02X-%02X-%02X-%02X", mac[0], mac[1], mac[2], mac[3], mac[4],
           mac[5]);
}

}  // namespace

int32_t vexo_protocol_version_request(uint32_t handle, int64_t mode, uint32_t nack) {
    const Caller caller{handle, __func__};
    const Registration found = find_or_report_not_found(caller);
    if (!found) {
        return -1;
    }
    const uint64_t word = choose_path(*found, mode, nack);
    const bool raw = (word & kVersionRaw) != 0;
    MessageWriter message = begin_request(*found, 'V');
    message.u64(word);
    if (raw) {
        message.bytes(found->host_mac, kMacSize);
    }
    if (transfer_failed(caller, transfer(found, found->io_socket, message))) {
        return VEXO_ERROR_TRANSPORT;
    }
    const int32_t status = examine_status(caller, found->response[kStatusOffset]);
    found->version_word = static_cast<uint32_t>(word);
    if (raw) {
        learn_controller_mac(caller, *found);
    }
    for (const uint32_t log_of : {handle, 0u}) {
        record({log_of, __func__}, "protocol version request: %d,nack: %d",
               static_cast<int>(word & 0xFFFF), static_cast<int>(nack));
    }
    return status;
}
