#include "client/exchange.h"

#include <cstdio>

#include "client/vexo.h"
#include "net/exchange_socket.h"

namespace vexo {

MessageWriter begin_request(Dataspace& dataspace, char type) {
    return {dataspace.request, sizeof dataspace.request, type};
}

MessageReader reply_payload(const Dataspace& dataspace) {
    return {dataspace.response, sizeof dataspace.response, kReplyPayload};
}

Transfer transfer(Dataspace& dataspace, int socket, MessageWriter& message) {
    const auto length = static_cast<unsigned>(message.finish());
    const int sent = socket_send(socket, dataspace.request, length);
    const int received = socket_recv(socket, dataspace.response, kReadSize, kNoTimeout);
    return {sent, received};
}

bool transfer_failed(Caller caller, Transfer result) {
    if (result.sent < 0) {
        report(caller, "%s send error", caller.function);
        return true;
    }
    if (result.received <= 0) {
        char printed[128];
        std::snprintf(printed, sizeof printed, "%s recv error", caller.function);
        report_as(caller, printed, "%s recv error: %d", caller.function, result.received);
        return true;
    }
    return false;
}

int32_t examine_status(Caller caller, int32_t status) {
    if (status != 0) {
        report(caller, "%s Error: %d", caller.function, status);
    }
    return status;
}

int32_t request(Caller caller, Dataspace& dataspace, int socket, MessageWriter& message) {
    if (transfer_failed(caller, transfer(dataspace, socket, message))) {
        return VEXO_ERROR_TRANSPORT;
    }
    return examine_status(caller, dataspace.response[kStatusOffset]);
}

}  // namespace vexo
