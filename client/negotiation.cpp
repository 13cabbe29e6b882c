// Negotiates the protocol version, and with it the data path.
#include "wire/negotiation.h"

#include <algorithm>

#include "client/exchange.h"
#include "client/vexo.h"
#include "net/raw_endpoint.h"
#include "net/raw_socket.h"
#include "wire/catalogue.h"

using namespace vexo;

namespace {

// Puts the settings of `mode` in place.
void choose_path(Dataspace& dataspace, int64_t mode, uint32_t nack) {
    const bool raw = wire::asks_for_frames(mode);
    shared(dataspace.link_mode).store(raw ? kLinkRaw : kLinkTcp, std::memory_order_relaxed);
    dataspace.page_size = mode > 1 ? wire::kLargePage : wire::kSmallPage;
    if (raw) {
        dataspace.nack = nack != 0 ? 1 : 0;
    }
}

// Raw frames go to the address that the reply gives, and come from there.
void learn_controller_mac(Caller caller, const Registration& found) {
    uint8_t* mac = found->controller_mac;
    std::ranges::copy(wire::controller_mac(response(*found)), mac);
    socket_raw_set_dstmac(found->raw_socket, mac);
    if (found->raw_socket == found.state().own_endpoint) {
        raw_listen_to(found->raw_socket, std::to_array(found->controller_mac));
    }
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
    choose_path(*found, mode, nack);
    const uint64_t word = wire::version_word(mode, nack != 0);
    const wire::MessageWriter message = wire::negotiation_request(
        begin_message(caller, *found, Purpose::request), word, std::to_array(found->host_mac));
    if (transfer_failed(caller, transfer(found, message))) {
        return VEXO_ERROR_TRANSPORT;
    }
    // A refused version counts as negotiated all the same.
    const int32_t status = examine_status(caller, wire::reply_status(response(*found)));
    found->version_word = static_cast<uint32_t>(word);
    if ((word & wire::kVersionRaw) != 0) {
        learn_controller_mac(caller, found);
    }
    for (const uint32_t log_of : {handle, 0u}) {
        record({log_of, __func__}, "protocol version request: %d,nack: %d",
               static_cast<int>(word & 0xFFFF), static_cast<int>(nack));
    }
    return status;
}
